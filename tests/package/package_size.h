// A check of the size of app.tbx in a work directory.
#ifndef TARVIO_TESTS_PACKAGE_PACKAGE_SIZE_H
#define TARVIO_TESTS_PACKAGE_PACKAGE_SIZE_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "support/children.h"
#include "support/files.h"
#include "support/work_directory.h"
#include "tarvio/package.h"

namespace tarvio_test {

// A df that reports this many free blocks of 1024 bytes.
inline std::string df_of(const std::string& blocks) {
  return "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
         "echo '/dev/mtdblock4  99999999   1000   " +
         blocks + "  1% /'\necho '/dev/other 1 1 1 1% /other'";
}

class SizeCheck : public testing::Test {
 protected:
  // Builds app.tbx with this many bytes of control files and of data.
  void build(size_t control_bytes, size_t data_bytes) const {
    write_file("control", std::string(control_bytes, 'c'));
    write_file("data", std::string(data_bytes, 'd'));
    work_.shell(
        "tar czf control.tar.gz ./control; tar czf data.tar.gz ./data; echo 2.0 >debian-binary; "
        "ar rc app.tbx debian-binary control.tar.gz data.tar.gz; "
        "rm control data control.tar.gz data.tar.gz debian-binary");
  }
  static int check() {
    std::fflush(stdout);
    return tq_tbx_check_file_size("app.tbx");
  }
  static int check_with_free(int64_t bytes) {
    const Tool df("df", df_of(std::to_string(bytes / 1024)));
    return check();
  }

  const WorkDirectory work_;
};

}  // namespace tarvio_test

#endif
