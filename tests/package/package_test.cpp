#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/hooks/fail_alloc.h"
#include "support/hooks/log_capture.h"
#include "support/string_list.h"
#include "support/unit_messages.h"
#include "tarvio/list.h"
#include "tarvio/log.h"
#include "tarvio/package.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kUnit[] = "package/tq_tbx_package_binding";

TEST(PackageBinding, HoldsItsOperationsInOrder) {
  const tq_package_binding* binding = tq_get_tbx_package_binding();
  EXPECT_EQ(binding->setup, &tq_setup_tbx_package_binding);
  EXPECT_EQ(binding->list, &tq_tbx_list);
  EXPECT_EQ(binding->install, &tq_tbx_install);
  EXPECT_EQ(binding->files, &tq_tbx_files);
  EXPECT_EQ(binding->remove, &tq_tbx_remove);
  EXPECT_EQ(binding->check_file_sign, &tq_tbx_check_file_sign);
  EXPECT_EQ(binding->check_file_size, &tq_tbx_check_file_size);
  EXPECT_EQ(binding->check_dependency, &tq_tbx_check_dependency);
  EXPECT_EQ(binding->file_corruption, &tq_tbx_file_corruption);

  using Operation = void (*)();
  const auto* slots = reinterpret_cast<const Operation*>(binding);
  EXPECT_EQ(sizeof(tq_package_binding), 9 * sizeof(Operation));
  EXPECT_EQ(slots[1], reinterpret_cast<Operation>(&tq_tbx_list));
  EXPECT_EQ(slots[3], reinterpret_cast<Operation>(&tq_tbx_files));
  EXPECT_EQ(slots[6], reinterpret_cast<Operation>(&tq_tbx_check_file_size));
  std::free(tq_tbx_package_binding);
}

TEST(PackageBinding, IsANewRecordEachTimeAndTheLastIsExported) {
  EXPECT_EQ(tq_tbx_package_binding, nullptr);
  tq_package_binding* first = tq_get_tbx_package_binding();
  EXPECT_EQ(tq_tbx_package_binding, first);
  tq_package_binding* second = tq_get_tbx_package_binding();
  EXPECT_EQ(tq_tbx_package_binding, second);
  EXPECT_NE(first, second);
  std::free(first);
  std::free(second);
}

TEST(PackageBinding, WithoutMemoryIsNull) {
  const FailAlloc fail(1);
  EXPECT_EQ(tq_get_tbx_package_binding(), nullptr);
  EXPECT_EQ(tq_tbx_package_binding, nullptr);
}

TEST(PackageBinding, HasSlotsThatDoNothing) {
  const LogCapture log(TQ_LOG_DEBUG);
  EXPECT_EQ(tq_setup_tbx_package_binding(), 0);
  EXPECT_EQ(tq_tbx_check_file_sign(), 0);
  EXPECT_EQ(tq_tbx_check_dependency(), 0);
  EXPECT_EQ(tq_tbx_file_corruption(), 0);
  tq_tbx_set_opkg_dir("/elsewhere");
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST(PackageFront, BeforeItIsSetUpReturns22AndWarns) {
  const LogCapture log;
  auto* const poison = reinterpret_cast<tq_package_info*>(1);
  tq_package_info* head = poison;
  StringList files;
  EXPECT_EQ(tq_list(100, 151, nullptr, &head), EINVAL);
  EXPECT_EQ(tq_install("/tmp/a.tbx", 0), EINVAL);
  EXPECT_EQ(tq_remove("a", 0), EINVAL);
  EXPECT_EQ(tq_files("a", files.get()), EINVAL);
  EXPECT_EQ(tq_check_file_size("/tmp/a.tbx"), EINVAL);
  EXPECT_EQ(head, poison);
  EXPECT_THAT(files.texts(), IsEmpty());
  EXPECT_THAT(unit_messages(log, kUnit),
              ElementsAre("warning: tq_list: package manager is not set up",
                          "warning: tq_install: package manager is not set up",
                          "warning: tq_remove: package manager is not set up",
                          "warning: tq_files: package manager is not set up",
                          "warning: tq_check_file_size: package manager is not set up"));
}

// A record that a host made without setting the front up is not the active one.
TEST(PackageFront, IsNotSetUpByARecordAlone) {
  const LogCapture log;
  tq_package_binding* binding = tq_get_tbx_package_binding();
  EXPECT_EQ(tq_remove("a", 0), EINVAL);
  std::free(binding);
}

TEST(PackageFront, IsSetUpOnce) {
  const FailAlloc allocations(0);
  EXPECT_EQ(tq_setup_package_manager(), 0);
  tq_package_binding* binding = tq_tbx_package_binding;
  ASSERT_NE(binding, nullptr);
  EXPECT_EQ(tq_setup_package_manager(), 0);
  EXPECT_EQ(tq_tbx_package_binding, binding);
  EXPECT_EQ(allocations.count(), 1);
}

TEST(PackageFront, IsSetUpOnceByManyThreads) {
  const FailAlloc allocations(0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([] {
      tq_setup_package_manager();
      EXPECT_NE(tq_tbx_package_binding, nullptr);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(allocations.count(), 1);
}

TEST(PackageFront, MayBeSetUpAgainAfterMemoryRanOut) {
  const LogCapture log;
  {
    const FailAlloc fail(1);
    EXPECT_EQ(tq_setup_package_manager(), 0);
  }
  EXPECT_EQ(tq_remove("a", 0), EINVAL);
  EXPECT_EQ(tq_setup_package_manager(), 0);
  EXPECT_EQ(tq_remove(nullptr, 0), -1);
}

TEST(PackageFront, ForwardsToTheBindingThatShips) {
  const LogCapture log;
  tq_setup_package_manager();
  tq_package_info* head = reinterpret_cast<tq_package_info*>(1);
  StringList files;
  EXPECT_EQ(tq_list(100, 151, nullptr, &head), 0);
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(tq_list(100, 151, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tq_install("/no-such.tbx", 0), ENOENT);
  EXPECT_EQ(tq_files("no;name", files.get()), EINVAL);
  EXPECT_EQ(tq_remove("no;name", 0), EINVAL);
  EXPECT_EQ(tq_check_file_size(nullptr), -1);
}

// The arguments of a call of a replaced operation.
struct Call {
  std::string operation;
  const void* text = nullptr;
  const void* out = nullptr;
  uint32_t first = 0;
  uint32_t second = 0;
};

bool operator==(const Call& a, const Call& b) {
  return a.operation == b.operation && a.text == b.text && a.out == b.out && a.first == b.first &&
         a.second == b.second;
}

Call seen;

class ReplacedOperation : public testing::Test {
 protected:
  ReplacedOperation() {
    tq_setup_package_manager();
    binding().list = [](uint32_t type, uint32_t subtype, const char* name, tq_package_info** out) {
      seen = {"list", name, out, type, subtype};
      return 1001;
    };
    binding().install = [](const char* path, int force) {
      seen = {"install", path, nullptr, static_cast<uint32_t>(force), 0};
      return 1002;
    };
    binding().files = [](const char* name, tq_list_t* files) {
      seen = {"files", name, files, 0, 0};
      return 1003;
    };
    binding().remove = [](const char* name, int force) {
      seen = {"remove", name, nullptr, static_cast<uint32_t>(force), 0};
      return 1004;
    };
    binding().check_file_size = [](const char* path) {
      seen = {"check_file_size", path, nullptr, 0, 0};
      return 1006;
    };
  }

  static tq_package_binding& binding() { return *tq_tbx_package_binding; }

  const char* const text_ = "text";
};

TEST_F(ReplacedOperation, ListIsCalledThrough) {
  tq_package_info* head = nullptr;
  EXPECT_EQ(tq_list(4294967295U, 151, text_, &head), 1001);
  EXPECT_TRUE((seen == Call{"list", text_, &head, 4294967295U, 151}));
}

TEST_F(ReplacedOperation, InstallIsCalledThrough) {
  EXPECT_EQ(tq_install(text_, -2), 1002);
  EXPECT_TRUE((seen == Call{"install", text_, nullptr, static_cast<uint32_t>(-2), 0}));
}

TEST_F(ReplacedOperation, FilesIsCalledThrough) {
  StringList files;
  EXPECT_EQ(tq_files(text_, files.get()), 1003);
  EXPECT_TRUE((seen == Call{"files", text_, files.get(), 0, 0}));
}

TEST_F(ReplacedOperation, RemoveIsCalledThrough) {
  EXPECT_EQ(tq_remove(text_, 1), 1004);
  EXPECT_TRUE((seen == Call{"remove", text_, nullptr, 1, 0}));
}

TEST_F(ReplacedOperation, SizeCheckIsCalledThrough) {
  EXPECT_EQ(tq_check_file_size(text_), 1006);
  EXPECT_TRUE((seen == Call{"check_file_size", text_, nullptr, 0, 0}));
}

TEST_F(ReplacedOperation, GetsNullArgumentsAsTheyAre) {
  EXPECT_EQ(tq_list(0, 0, nullptr, nullptr), 1001);
  EXPECT_EQ(tq_files(nullptr, nullptr), 1003);
  EXPECT_TRUE((seen == Call{"files", nullptr, nullptr, 0, 0}));
}

TEST_F(ReplacedOperation, StaysWhenTheExportedPointerMovesOn) {
  tq_package_binding* active = tq_tbx_package_binding;
  tq_package_binding* later = tq_get_tbx_package_binding();
  EXPECT_EQ(tq_tbx_package_binding, later);
  EXPECT_EQ(tq_remove(text_, 1), 1004);
  EXPECT_EQ(tq_setup_package_manager(), 0);
  EXPECT_EQ(tq_tbx_package_binding, later);
  EXPECT_EQ(tq_remove(text_, 1), 1004);
  active->remove = tq_tbx_remove;
  const LogCapture log;
  EXPECT_EQ(tq_remove(nullptr, 1), -1);
  std::free(later);
}

}  // namespace
}  // namespace tarvio_test
