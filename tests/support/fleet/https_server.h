// A server of files, by HTTPS, with an authority of its own.
#ifndef TARVIO_TESTS_SUPPORT_FLEET_HTTPS_SERVER_H
#define TARVIO_TESTS_SUPPORT_FLEET_HTTPS_SERVER_H

#include <memory>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/background_program.h"

namespace tarvio_test {

class HttpsServer {
 public:
  HttpsServer() {
    shell(place_.path(), std::string(TARVIO_FLEET_FILES) + "/certificates ca && " +
                             TARVIO_FLEET_FILES + "/certificates server localhost && mkdir files");
    program_ = std::make_unique<BackgroundProgram>(
        std::vector<std::string>{"python3", TARVIO_HTTPS_SERVER, place_ / "server.crt",
                                 place_ / "server.key", place_ / "files"});
    EXPECT_TRUE(program_->says("ready"));
  }

  std::string authorities() const { return place_ / "ca.crt"; }
  // Of a file that it serves.
  std::filesystem::path file(const std::string& name) const { return place_ / "files/" / name; }
  static std::string url(const std::string& name) { return "https://localhost:8443/" + name; }

  // From now on the connection breaks after so many bytes of a file, or it sends no further byte.
  void break_after(size_t bytes) const { write_file(place_ / "break", std::to_string(bytes)); }
  void stall_after(size_t bytes) const { write_file(place_ / "stall", std::to_string(bytes)); }
  void go_on() const {
    std::filesystem::remove(place_ / "break");
    std::filesystem::remove(place_ / "stall");
  }
  // What it was asked: a line for each request, with the range that was wanted.
  std::string requests() const { return program_->output(); }

 private:
  const TempDir place_;
  std::unique_ptr<BackgroundProgram> program_;
};

}  // namespace tarvio_test

#endif
