// A folder for the intermediate files of one operand.
#ifndef TARVIO_CLIENT_WORK_FOLDER_H
#define TARVIO_CLIENT_WORK_FOLDER_H

#include <string>

#include "signal_hold.h"

namespace client {

// A new folder that nobody else may enter. It goes with all that is in it at the end of its life,
// which a signal cannot come before.
class WorkFolder {
 public:
  // Below $TMPDIR or /tmp.
  WorkFolder();
  // The random end of the name comes behind the beginning.
  explicit WorkFolder(const std::string& beginning);
  ~WorkFolder();
  // Removes folders of such a beginning that a killed run or a power cut has left behind. Only for
  // beginnings of which one run at a time makes folders.
  static void remove_left_over(const std::string& beginning);
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;

  // Absolute.
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  [[nodiscard]] const SignalHold& signals() const { return signals_; }

 private:
  SignalHold signals_;
  std::string path_;
};

}  // namespace client

#endif
