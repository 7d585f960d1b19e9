#include "signatures/password.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/owners.h"
#include "base/pipe.h"
#include "process/failure.h"
#include "process/signal_hold.h"
#include "terminal/printable_text.h"
#include "terminal/question.h"

namespace client {

namespace {

constexpr char kTooLong[] = "the password is too long: at most 1024 bytes";

void read_first_line(const std::string& path, SecretText& password) {
  const bool is_input = path == "-";
  const tarvio::Fd opened(is_input ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  const int file = is_input ? STDIN_FILENO : opened.get();
  const std::string complaint = "cannot read the password from '" + path + "'";
  if (!is_input && !opened.valid()) throw Failure::of_system(complaint);
  const std::span<char> room = password.room();
  size_t size = 0;
  // Byte by byte: what follows the line is for others.
  while (size < room.size()) {
    const ssize_t count = tarvio::read_some(file, room.subspan(size, 1));
    if (count < 0) throw Failure::of_system(complaint);
    if (count == 0 || room[size] == '\n') {
      // Lines may end as those of Windows do.
      return password.resize(size > 0 && room[size - 1] == '\r' ? size - 1 : size);
    }
    ++size;
  }
  throw Failure(E2BIG, kTooLong);
}

void ask_password(const std::string& question, SecretText& password) {
  if (!can_ask()) {
    throw Failure(EPERM,
                  "cannot ask for the password without a terminal; use --password-file FILE");
  }
  const SignalHold signals;
  const std::optional<size_t> size = ask_hidden(question, signals, password.room());
  if (!size) throw Failure(E2BIG, kTooLong);
  password.resize(*size);
}

}  // namespace

void read_password(const PasswordFile& file, const std::string& key_file, SecretText& password) {
  if (file) return read_first_line(*file, password);
  ask_password("Password of " + printable(key_file) + ": ", password);
}

void read_new_password(const PasswordFile& file, const std::string& key_file,
                       SecretText& password) {
  read_password(file, key_file, password);
  if (password.text().empty()) {
    throw Failure(EINVAL, "the password is empty; use --no-password for a key without one");
  }
  if (file) return;
  SecretText again;
  ask_password("Again: ", again);
  if (again.text() != password.text()) throw Failure(EINVAL, "the two passwords differ");
}

}  // namespace client
