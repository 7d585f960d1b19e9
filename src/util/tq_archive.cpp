#include "tarvio/archive.h"

#include <errno.h>

#include "util/log_macros.h"
#include "util/tool_command.h"

namespace {

using tarvio::ToolCommand;

ToolCommand dd_command(const char* in_file, const char* out_file, int block_size, int block_count) {
  if (block_size != 0 && block_count != 0) {
    return ToolCommand("dd if=%s of=%s bs=%d count=%d 2>&1", in_file, out_file, block_size,
                       block_count);
  }
  if (block_size != 0)
    return ToolCommand("dd if=%s of=%s bs=%d 2>&1", in_file, out_file, block_size);
  if (block_count != 0) {
    return ToolCommand("dd if=%s of=%s count=%d 2>&1", in_file, out_file, block_count);
  }
  return ToolCommand("dd if=%s of=%s 2>&1", in_file, out_file);
}

// The beginning of the command line ends in a blank. The tool also runs without files (oddity 136).
int make_archive(const char* beginning, const char* archive, int file_count,
                 const char* const* files) {
  if (archive == nullptr || (file_count > 0 && files == nullptr)) return EINVAL;
  ToolCommand command("%s%s ", beginning, archive);
  for (int at = 0; at < file_count; ++at) {
    if (files[at] == nullptr) return EINVAL;
    command.append(files[at]);
    command.append(" ");
  }
  command.append("2>&1");
  return tarvio::run_tool(TQ_HERE, command);
}

}  // namespace

int tq_dd(const char* in_file, const char* out_file, int block_size, int block_count) {
  if (in_file == nullptr || out_file == nullptr) return EINVAL;
  const int result =
      tarvio::run_tool(TQ_HERE, dd_command(in_file, out_file, block_size, block_count));
  TQ_DEBUG("tq_dd result %d ", result);
  return result;
}

// The messages of the extractions end in a line feed (oddity 5).

int tq_extract_from_tgz(const char* archive, const char* member) {
  if (archive == nullptr) archive = "(null)";  // not refused (oddity 135)
  if (member == nullptr) {
    TQ_DEBUG("extract tgz %s\n", archive);
    return tarvio::run_tool(TQ_HERE, ToolCommand("tar xvzf %s 2>&1", archive));
  }
  TQ_DEBUG("extract tgz %s %s\n", archive, member);
  return tarvio::run_tool(TQ_HERE, ToolCommand("tar xvzf %s %s 2>&1", archive, member));
}

int tq_extract_from_ar(const char* archive, const char* member) {
  if (archive == nullptr) return EINVAL;
  if (member == nullptr) {
    TQ_DEBUG("extract ar %s\n", archive);
    return tarvio::run_tool(TQ_HERE, ToolCommand("ar xv %s 2>&1", archive));
  }
  TQ_DEBUG("extract ar %s %s\n", archive, member);
  return tarvio::run_tool(TQ_HERE, ToolCommand("ar xv %s %s 2>&1", archive, member));
}

int tq_archive_tgz(const char* archive, int file_count, const char* const* files) {
  return make_archive("tar cvzf ", archive, file_count, files);
}

int tq_archive_ar(const char* archive, int file_count, const char* const* files) {
  return make_archive("ar rv ", archive, file_count, files);
}
