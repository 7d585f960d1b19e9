#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/live_allocations.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;

constexpr char kUnit[] = "lib/tq_lib_package";

TEST(ClientPackage, ListCallSetsThePackageManagerUp) {
  ASSERT_EQ(tq_tbx_package_binding, nullptr);
  tq_package_info* packages = nullptr;
  EXPECT_EQ(tq_lib_list_pkg(TQ_CATEGORY_ANY, TQ_SUBCATEGORY_ANY, nullptr, &packages), 0);
  EXPECT_NE(tq_tbx_package_binding, nullptr);
  EXPECT_EQ(packages, nullptr);
}

TEST(ClientPackage, InstallCallSetsThePackageManagerUp) {
  const LogCapture log;
  EXPECT_EQ(tq_lib_install_pkg("/no-such.tbx", 0), ENOENT);
  EXPECT_NE(tq_tbx_package_binding, nullptr);
}

TEST(ClientPackage, FilesCallSetsThePackageManagerUp) {
  const LogCapture log;
  uint32_t count = 0;
  char** files = nullptr;
  EXPECT_EQ(tq_lib_files_pkg(nullptr, &count, &files), -1);
  EXPECT_NE(tq_tbx_package_binding, nullptr);
}

TEST(ClientPackage, RemoveCallSetsThePackageManagerUp) {
  const LogCapture log;
  EXPECT_EQ(tq_lib_remove_pkg(nullptr, 1), -1);
  EXPECT_NE(tq_tbx_package_binding, nullptr);
}

// What the operations of the binding got and what they give.
std::string asked;
int answer = 0;
std::vector<const char*> installed_files;
tq_package_info record;

int list(uint32_t type, uint32_t subtype, const char* name, tq_package_info** out) {
  asked =
      std::to_string(type) + " " + std::to_string(subtype) + " " + (name == nullptr ? "" : name);
  *out = &record;
  return answer;
}

int install(const char* path, int force) {
  asked = path + (" " + std::to_string(force));
  return answer;
}

int remove(const char* name, int force) {
  asked = name + (" " + std::to_string(force));
  return answer;
}

int files(const char* name, tq_list_t* found) {
  asked = name;
  for (const char* file : installed_files)
    tq_list_add(found, file == nullptr ? nullptr : strdup(file));
  return answer;
}

class ClientPackageCall : public testing::Test {
 protected:
  ClientPackageCall() {
    tq_setup_package_manager();
    before_ = *tq_tbx_package_binding;
    tq_tbx_package_binding->list = list;
    tq_tbx_package_binding->install = install;
    tq_tbx_package_binding->remove = remove;
    tq_tbx_package_binding->files = files;
    answer = 0;
    installed_files.clear();
  }
  ~ClientPackageCall() override {
    free_files();
    *tq_tbx_package_binding = before_;
  }

  int list_files() { return tq_lib_files_pkg("clock", &count_, &files_); }
  std::vector<std::string> found() const { return {files_, files_ + count_}; }
  void free_files() {
    for (uint32_t i = 0; i < count_; ++i) free(files_[i]);
    free(files_);
    files_ = nullptr;
    count_ = 0;
  }

  uint32_t count_ = 0;
  char** files_ = nullptr;

 private:
  tq_package_binding before_ = {};
};

TEST_F(ClientPackageCall, ListForwardsItsArgumentsAndItsResult) {
  tq_package_info* out = nullptr;
  answer = 13;
  EXPECT_EQ(tq_lib_list_pkg(1, 151, "clock", &out), 13);
  EXPECT_EQ(asked, "1 151 clock");
  EXPECT_EQ(out, &record);
  tq_lib_list_pkg(4000000000, 0, nullptr, &out);
  EXPECT_EQ(asked, "4000000000 0 ");
}

TEST_F(ClientPackageCall, InstallForwardsItsArgumentsAndItsResult) {
  answer = 10303;
  EXPECT_EQ(tq_lib_install_pkg("/tmp/clock.tbx", -2), 10303);
  EXPECT_EQ(asked, "/tmp/clock.tbx -2");
}

TEST_F(ClientPackageCall, RemoveForwardsItsArgumentsAndItsResult) {
  answer = -1;
  EXPECT_EQ(tq_lib_remove_pkg("clock", 1), -1);
  EXPECT_EQ(asked, "clock 1");
}

TEST_F(ClientPackageCall, FilesOfAPackageWithoutAnyAreANullArray) {
  count_ = 7;
  char* stale = nullptr;
  files_ = &stale;
  EXPECT_EQ(list_files(), 0);
  EXPECT_EQ(count_, 0U);
  EXPECT_EQ(files_, nullptr);
}

TEST_F(ClientPackageCall, FilesComeInOrder) {
  installed_files = {"/usr/bin/clock"};
  EXPECT_EQ(list_files(), 0);
  EXPECT_EQ(asked, "clock");
  EXPECT_THAT(found(), ElementsAre("/usr/bin/clock"));
  free_files();

  installed_files = {"/a", "", "/c", "/a"};
  EXPECT_EQ(list_files(), 0);
  EXPECT_THAT(found(), ElementsAre("/a", "", "/c", "/a"));
}

TEST_F(ClientPackageCall, FilesLogWhatTheyDo) {
  installed_files = {"/a", "/b"};
  LogCapture log(TQ_LOG_DEBUG);
  list_files();
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("debug: returned tq_files code 0", "debug: returned size 2"));
  free_files();
  log.clear();
  answer = 10304;
  list_files();
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: returned tq_files code 10304"));
}

TEST_F(ClientPackageCall, FailedFilesGiveTheCodeAndNothingElse) {
  installed_files = {"/a", "/b"};
  count_ = 7;
  char* stale = nullptr;
  files_ = &stale;
  answer = 10304;
  EXPECT_EQ(list_files(), 10304);
  EXPECT_EQ(count_, 0U);
  EXPECT_EQ(files_, nullptr);
}

TEST_F(ClientPackageCall, FilesNeedTheirArguments) {
  EXPECT_EQ(tq_lib_files_pkg("clock", nullptr, &files_), EINVAL);
  EXPECT_EQ(tq_lib_files_pkg("clock", &count_, nullptr), EINVAL);
}

TEST_F(ClientPackageCall, FilesReportThatMemoryRunsOut) {
  installed_files = {"/a", "/b"};
  const FailAlloc fail(3);  // two nodes, and the array
  EXPECT_EQ(list_files(), ENOMEM);
  EXPECT_TRUE(fail.happened());
  EXPECT_EQ(count_, 0U);
  EXPECT_EQ(files_, nullptr);
}

TEST_F(ClientPackageCall, FilesKeepAPlaceForANullElement) {
  installed_files = {"/a", nullptr, "/c"};
  EXPECT_EQ(list_files(), 0);
  ASSERT_EQ(count_, 3U);
  EXPECT_STREQ(files_[0], "/a");
  EXPECT_EQ(files_[1], nullptr);
  EXPECT_STREQ(files_[2], "/c");
}

TEST_F(ClientPackageCall, FilesAllocateTheArrayAlone) {
  installed_files = {"/a", "/b"};
  const LiveAllocations live;
  list_files();
  EXPECT_EQ(live.count(), 1);
}

TEST(ClientPackage, GivesTheTextOfACode) {
  char* of_clients = tq_lib_get_err_mes(10301);
  char* of_all = tq_get_err_mes(10301);
  EXPECT_STREQ(of_clients, of_all);
  free(of_clients);
  free(of_all);
}

}  // namespace
}  // namespace tarvio_test
