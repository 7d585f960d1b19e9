#include "process/kernel_text.h"

#include <cstring>

#include "base/offline_root.h"
#include "process/failure.h"
#include "process/text_pieces.h"
#include "tarvio/opkg.h"

namespace client {

std::string root_in(std::string_view command_line) {
  constexpr std::string_view kKey = "root=";
  std::string root;
  for (auto word = take_word(command_line); !word.empty(); word = take_word(command_line)) {
    if (word.starts_with(kKey)) root = word.substr(kKey.size());  // the last one counts
  }
  return root;
}

std::vector<Mount> mounts_in(std::string_view text) {
  std::vector<Mount> mounts;
  for (const std::string& line : lines_of(text)) {
    std::string_view rest = line;
    Mount mount;
    for (std::string* field : {&mount.device, &mount.directory, &mount.type, &mount.options}) {
      *field = take_word(rest);
    }
    mounts.push_back(std::move(mount));
  }
  return mounts;
}

std::string root_of_packages() {
  int online = 1;
  // The library takes a test that failed for online (oddity 61): that could be the wrong root.
  if (const int error = tq_is_boot_online(&online)) {
    throw Failure(error, std::string("cannot find out which root the device runs from: ") +
                             "cannot read '/proc/cmdline': " + strerror(error));
  }
  return online != 0 ? "" : tarvio::kOfflineRoot;
}

}  // namespace client
