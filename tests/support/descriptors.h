// The open descriptors of this process.
#ifndef TARVIO_TESTS_SUPPORT_DESCRIPTORS_H
#define TARVIO_TESTS_SUPPORT_DESCRIPTORS_H

#include <sys/resource.h>

#include <filesystem>
#include <map>
#include <string>

namespace tarvio_test {

using Descriptors = std::map<int, std::string>;  // number, and what it is

inline Descriptors open_descriptors() {
  Descriptors found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const std::string target = std::filesystem::read_symlink(entry.path());
    // The listing itself holds a descriptor of this directory.
    if (!target.ends_with("/fd")) found[std::stoi(entry.path().filename())] = target;
  }
  return found;
}

inline Descriptors opened_since(const Descriptors& before) {
  Descriptors opened = open_descriptors();
  for (const auto& [number, target] : before) opened.erase(number);
  return opened;
}

// Lets the process open no further descriptor until the end of the scope.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit none_left = {3, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none_left);
  }
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  rlimit before_ = {};
};

}  // namespace tarvio_test

#endif
