// What tools print. The first byte of an input says which call runs them, the rest is their output.
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "fuzzer.h"
#include "memory_file.h"
#include "models.h"
#include "packages/needed_space.h"
#include "process/failure.h"
#include "support/hooks/got_hook.h"
#include "tarvio/archive.h"
#include "tarvio/error.h"
#include "tarvio/nand.h"
#include "tarvio/opkg.h"
#include "tarvio/package.h"

namespace tarvio_fuzz {
namespace {

using tarvio_test::Hook;

constexpr size_t kPieceBytes = 255;
constexpr char kNextTool = '\x1e';

// The commands that the library runs print these texts, one after the other, and no command runs.
class Tools {
 public:
  explicit Tools(Texts outputs) : outputs_(std::move(outputs)) { running_ = this; }

 private:
  static FILE* open(const char* /*command*/, const char* /*mode*/) {
    const bool has_more = running_->next_ < running_->outputs_.size();
    const MemoryFile file(has_more ? running_->outputs_[running_->next_++] : "");
    return fdopen(dup(file.fd()), "r");
  }
  static pid_t end(pid_t child, int* status, int /*options*/) {
    *status = 0;
    return child;
  }

  static inline Tools* running_ = nullptr;
  Texts outputs_;
  size_t next_ = 0;
  Hook<FILE* (*)(const char*, const char*)> popen_{"popen", open};
  Hook<int (*)(FILE*)> pclose_{"pclose", std::fclose};
  Hook<pid_t (*)()> fork_{"fork", getppid};  // any process id
  Hook<pid_t (*)(pid_t, int*, int)> waitpid_{"waitpid", end};
};

int code_of_opkg(const std::string& output) {
  int code = 0;
  for (const std::string& piece : pieces_of(output, kPieceBytes)) {
    for (size_t row = 0; row < TQ_OPKG_MESSAGES; ++row)
      if (piece.find(opkgmes[row]) != std::string::npos) code = opkgerr[row];
  }
  return code;
}

Texts chopped_lines_of(const std::string& output) {
  Texts lines = pieces_of(output, kPieceBytes);
  for (std::string& line : lines) line = chopped(line);
  return lines;
}

std::string check_opkg(const std::string& output) {
  const Tools tools({output});
  tq_list_t* lines = tq_list_create();
  const int code = tq_opkg_run_command("opkg", lines);
  const bool has_lines = take_strings(lines) == chopped_lines_of(output);
  return has_lines && code == code_of_opkg(output) ? "" : "opkg is judged otherwise";
}

std::string check_files(const std::string& output) {
  const Tools tools({output});
  tq_list_t* lines = tq_list_create();
  const int code = tq_tbx_files("clock", lines);
  Texts expected = chopped_lines_of(output);
  if (!expected.empty()) expected.erase(expected.begin());
  if (code_of_opkg(output) != 0) expected.clear();
  const bool has_lines = take_strings(lines) == expected;
  return has_lines && code == code_of_opkg(output) ? "" : "other files";
}

// The smallest error whose message a line holds; 0 for none.
int error_in(const std::string& line) {
  for (int error = 0; error <= EHWPOISON; ++error) {
    const char* text = strerrordesc_np(error);
    if (text != nullptr && line.find(text) != std::string::npos) return error;
  }
  return 0;
}

std::string check_flash_tool(const std::string& output) {
  int expected = 0;
  for (const std::string& piece : pieces_of(output, kPieceBytes))
    if (expected == 0) expected = error_in(piece);
  const Tools tools({output});
  return tq_nandwrite("image", "/dev/mtd1", 0) == expected ? "" : "nandwrite is judged otherwise";
}

std::string check_bad_blocks(const std::string& output) {
  constexpr int kUnwritten = -7;
  int expected = kUnwritten;
  for (const std::string& piece : pieces_of(output, kPieceBytes)) {
    if (!piece.starts_with("Number of bad blocks:")) continue;
    (void)std::sscanf(piece.c_str(), "Number of bad blocks: %d", &expected);
    break;
  }
  const Tools tools({output});
  int bad_blocks = kUnwritten;
  const int code = tq_nand_count_badblock("/dev/mtd1", &bad_blocks);
  return code == 0 && bad_blocks == expected ? "" : "another number of bad blocks";
}

std::string check_package_data(const std::string& output) {
  constexpr size_t kShortestHeading = 16;
  Texts expected = lines_of(output);
  const bool is_accepted = !expected.empty() && expected[0].size() >= kShortestHeading &&
                           expected[0].find("Collected errors") == std::string::npos;
  if (!expected.empty()) expected.erase(expected.begin());
  const Tools tools({output});
  tq_pkg_data* const data = tq_pkg_data_open("command");
  if ((data != nullptr) != is_accepted) return "accepted, or not";
  Texts lines;
  for (int32_t at = 0; at < tq_pkg_data_count(data); ++at)
    lines.emplace_back(tq_pkg_data_find(data, static_cast<uint32_t>(at)));
  tq_pkg_data_close(data);
  return !is_accepted || lines == expected ? "" : "other lines";
}

// In 32 bits, as all of the size check. None without the word.
std::optional<int32_t> number_in(const std::string& line, size_t word) {
  const Texts words = words_of(line, " ");
  if (words.size() <= word) return std::nullopt;
  return static_cast<int32_t>(std::strtoll(words[word].c_str(), nullptr, 10));
}

std::optional<int32_t> sum_of_sizes(const Texts& lines) {
  uint32_t sum = 0;
  for (const std::string& line : lines) {
    const std::optional<int32_t> size = number_in(line, 2);
    if (!size) return std::nullopt;
    sum += static_cast<uint32_t>(*size);
  }
  return static_cast<int32_t>(sum);
}

Texts outputs_of(const std::string& text) {
  Texts outputs(1);
  for (const char byte : text) {
    if (byte == kNextTool) {
      outputs.emplace_back();
    } else {
      outputs.back() += byte;
    }
  }
  return outputs;
}

bool fits(const Texts& outputs) {
  constexpr size_t kLongPieceBytes = 4095;
  constexpr size_t kFreeBlocks = 3;
  std::array<Texts, 3> lines;
  for (size_t at = 0; at < lines.size() && at < outputs.size(); ++at)
    lines[at] = pieces_of(outputs[at], kLongPieceBytes);
  const std::optional<int32_t> control = sum_of_sizes(lines[0]);
  const std::optional<int32_t> data = sum_of_sizes(lines[1]);
  if (!control || *control < 0 || !data || *data < 0) return false;
  const int32_t blocks = lines[2].size() < 2 ? 0 : number_in(lines[2][1], kFreeBlocks).value_or(0);
  const auto free_bytes = static_cast<int32_t>(static_cast<uint32_t>(blocks) * 1024U);
  const auto needed =
      static_cast<int32_t>(static_cast<uint32_t>(*control) + static_cast<uint32_t>(*data));
  return free_bytes >= 0 && needed <= free_bytes;
}

std::string check_size(const std::string& output) {
  const Texts outputs = outputs_of(output);
  const Tools tools(outputs);
  return tq_tbx_check_file_size("clock.tbx") == (fits(outputs) ? 0 : -1) ? "" : "other sizes";
}

// What the client makes of tar's listings, whole and in two pieces.
std::string check_listing(const std::string& output) {
  constexpr char kNowhere[] = "/no/such/directory";
  client::NeededSpace whole;
  client::NeededSpace pieces;
  whole.add(kNowhere, output);
  pieces.add(kNowhere, std::string_view(output).substr(0, output.size() / 2));
  pieces.add(kNowhere, std::string_view(output).substr(output.size() / 2));
  if (whole.listed_bytes() != pieces.listed_bytes()) return "pieces have another size";
  try {
    return whole.decisive().needed_bytes <= whole.listed_bytes() ? "" : "more than is listed";
  } catch (const client::Failure&) {
    return "";
  }
}

std::string check_tools(const std::string& input) {
  constexpr std::array kChecks = {check_opkg,       check_files,        check_flash_tool,
                                  check_bad_blocks, check_package_data, check_size,
                                  check_listing};
  if (input.empty()) return "";
  const auto which = static_cast<unsigned char>(input[0]) % kChecks.size();
  return kChecks[which](input.substr(1));
}

}  // namespace

const Fuzzer kTools = {.corpus = "tools", .check = check_tools};

}  // namespace tarvio_fuzz
