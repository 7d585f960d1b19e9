// A directory for the intermediate files of one operand.
#ifndef TARVIO_CLIENT_PROCESS_WORK_DIRECTORY_H
#define TARVIO_CLIENT_PROCESS_WORK_DIRECTORY_H

#include <string>

#include "process/signal_hold.h"

namespace client {

// A new directory that nobody else may enter; removed with its contents on destruction, even after
// a signal.
class WorkDirectory {
 public:
  // Below $TMPDIR or /tmp.
  WorkDirectory();
  // Its name is the beginning and random letters.
  explicit WorkDirectory(const std::string& beginning);
  ~WorkDirectory();
  // Removes the stale directories of such a beginning that a killed run or a power cut has left.
  // Only for beginnings of which one run at a time makes directories.
  static void remove_left_over(const std::string& beginning);
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;

  // Absolute.
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  [[nodiscard]] const SignalHold& signals() const { return signals_; }
  // Throws a Failure when nothing more can be written in it: tools that find no space may leave a
  // file that is too short, which the next one finds damaged. It ends with the cause, which may be
  // another one.
  void check_space_left(const std::string& cause = "") const;

 private:
  SignalHold signals_;
  std::string path_;
};

}  // namespace client

#endif
