#include "process/directory_watch.h"

#include <poll.h>
#include <sys/inotify.h>

#include <array>
#include <cerrno>

#include "base/pipe.h"
#include "process/failure.h"

namespace client {

DirectoryWatch::DirectoryWatch(const std::string& directory, uint32_t events)
    : directory_(directory), inotify_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (!inotify_.valid() || inotify_add_watch(inotify_.get(), directory.c_str(), events) < 0) {
    throw Failure::of_system("cannot watch '" + directory + "'");
  }
}

bool DirectoryWatch::wait(const tarvio::Deadline& deadline) const {
  if (!tarvio::wait_for(inotify_.get(), POLLIN, deadline)) {
    if (errno == ETIMEDOUT) return false;
    throw Failure::of_system("cannot watch '" + directory_ + "'");
  }
  std::array<char, 4096> events;
  while (tarvio::read_some(inotify_.get(), events) > 0) {
  }
  if (errno != EAGAIN) throw Failure::of_system("cannot watch '" + directory_ + "'");
  return true;
}

}  // namespace client
