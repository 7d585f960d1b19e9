// Going to the background: the program that was called waits until the manager answers, so that its
// exit status tells whether the start succeeded.
#ifndef TARVIOD_BACKGROUND_H
#define TARVIOD_BACKGROUND_H

namespace tarviod {

class Background {
 public:
  // Forks when wanted. Only the child returns; the parent ends with status 0 once `ready` was
  // called, or with the child's own status when the child ended before.
  explicit Background(bool wanted);

  // Lets the parent go and the terminal with it. Does nothing in the foreground.
  void ready();

 private:
  int ready_fd_ = -1;
};

}  // namespace tarviod

#endif
