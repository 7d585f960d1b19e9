#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "support/apps/app_manager.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/packages/package_listing.h"
#include "tarvio/app.h"
#include "tarvio/package.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

class AppSetup : public testing::Test {
 protected:
  AppSetup() {
    tq_setup_status_manager();
    tq_setup_package_manager();
  }

  // The applications that the manager knows, in order.
  std::vector<std::string> known() {
    log_.clear();
    tq_stop_app("no such name");
    std::vector<std::string> names;
    const std::string before = "Checking application ";
    for (const std::string& message : log_.messages(TQ_LOG_DEBUG))
      if (message.starts_with(before))
        names.push_back(message.substr(before.size(), message.find('(') - before.size()));
    return names;
  }

  LogCapture log_{TQ_LOG_DEBUG};
};

TEST_F(AppSetup, KnowsTheInstalledApplicationsInTheOrderOfTheList) {
  add_package("alpha");
  add_package("kernel", "Image");
  add_package("beta", "Application", "Application_Java");
  add_package("library", "Library");
  write_information("invisible.control", "Package: invisible\n");
  EXPECT_EQ(tq_setup_app_manager(), 1);
  EXPECT_THAT(known(), ElementsAre("beta", "alpha"));
}

TEST_F(AppSetup, ShowsTheApplicationsThatItKnows) {
  EXPECT_EQ(tq_known_applications(), nullptr);
  add_package("alpha");
  add_package("kernel", "Image");
  add_package("beta");
  tq_setup_app_manager();
  std::vector<std::string> names;
  for (const tq_list_node* node = tq_known_applications()->head; node != nullptr;
       node = node->next) {
    const auto* app = static_cast<const tq_app_info*>(node->element);
    EXPECT_EQ(app->binding, linux_app_binding);
    names.emplace_back(app->package->name);
  }
  EXPECT_THAT(names, ElementsAre("beta", "alpha"));
}

TEST_F(AppSetup, DoesNotKnowWhatIsInstalledLater) {
  add_package("alpha");
  tq_setup_app_manager();
  add_package("beta");
  EXPECT_THAT(known(), ElementsAre("alpha"));
}

TEST_F(AppSetup, WithoutAnApplicationIsASuccess) {
  EXPECT_EQ(tq_setup_app_manager(), 1);
  EXPECT_THAT(known(), IsEmpty());
  EXPECT_EQ(tq_start_all_app(), 0);
}

TEST_F(AppSetup, WithoutAListIsASuccessWithoutApplications) {
  fs::remove(kInformation);
  EXPECT_EQ(tq_setup_app_manager(), 1);
  EXPECT_THAT(known(), IsEmpty());
}

int cannot_open(const char*, int, ...) {
  errno = EIO;
  return -1;
}

// The listing returns packages and fails all the same.
TEST_F(AppSetup, WithoutABootTestIsASuccessWithoutApplications) {
  add_package("alpha");
  {
    const Hook open("open", &cannot_open);
    EXPECT_EQ(tq_setup_app_manager(), 1);
  }
  EXPECT_THAT(known(), IsEmpty());
}

TEST(AppSetupAlone, WithoutAPackageManagerIsASuccessWithoutApplications) {
  const LogCapture log;
  EXPECT_EQ(tq_setup_app_manager(), 1);
  EXPECT_EQ(tq_start_all_app(), 0);
}

TEST_F(AppSetup, IgnoresSigchld) {
  ::signal(SIGCHLD, SIG_DFL);
  tq_setup_app_manager();
  struct sigaction action = {};
  ::sigaction(SIGCHLD, nullptr, &action);
  EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(AppSetup, WithAnApplicationThatNoBindingTakesIsNotASuccess) {
  add_package("alpha");
  // The binding's set-up is the only moment at which a host can reach the new record.
  const Hook signal("signal", [](int, sighandler_t) -> sighandler_t {
    linux_app_binding->is_mine = [](tq_app_info*) { return 0; };
    return SIG_DFL;
  });
  EXPECT_EQ(tq_setup_app_manager(), 0);
  EXPECT_EQ(tq_start_app("alpha"), EINVAL);
  EXPECT_THAT(all_statuses(), ElementsAre("alpha 2 start app failed."));
}

// Whose records must not be freed.
int list_beta_and_alpha(uint32_t, uint32_t, const char*, tq_package_info** out) {
  static char names[][6] = {"beta", "alpha"};
  static tq_package_info packages[2] = {};
  for (const int n : {0, 1}) packages[n].name = names[n];
  packages[0].next = &packages[1];
  *out = packages;
  return 0;
}

TEST_F(AppSetup, LeavesTheRecordsOfAFailedListingAlone) {
  tq_tbx_package_binding->list = [](auto... arguments) {
    return list_beta_and_alpha(arguments...) + EIO;
  };
  EXPECT_EQ(tq_setup_app_manager(), 1);
  EXPECT_THAT(known(), IsEmpty());
}

struct Shortage {
  int failing_allocation;
  int result;
  std::vector<std::string> known;
};

std::ostream& operator<<(std::ostream& stream, const Shortage& row) {
  return stream << row.failing_allocation;
}

class AppSetupWithoutMemory : public AppSetup, public testing::WithParamInterface<Shortage> {};

TEST_P(AppSetupWithoutMemory, KnowsTheApplicationsSoFar) {
  tq_tbx_package_binding->list = list_beta_and_alpha;
  const FailAlloc fail(GetParam().failing_allocation);
  EXPECT_EQ(tq_setup_app_manager(), GetParam().result);
  EXPECT_TRUE(fail.happened());
  EXPECT_EQ(known(), GetParam().known);
}

// Two lists, the binding and its node, then a record and a node for each application.
INSTANTIATE_TEST_SUITE_P(AppSetup, AppSetupWithoutMemory,
                         testing::Values(Shortage{1, 0, {}}, Shortage{2, 0, {}}, Shortage{3, 0, {}},
                                         Shortage{4, 0, {"beta", "alpha"}}, Shortage{5, 1, {}},
                                         Shortage{6, 1, {}}, Shortage{7, 1, {"beta"}},
                                         Shortage{8, 1, {"beta"}}));

TEST_F(AppSetupWithoutMemory, ReportsTheErrorOfTheRecords) {
  tq_tbx_package_binding->list = list_beta_and_alpha;
  for (const int n : {1, 2}) {
    tq_list_t* apps = tq_list_create();
    const FailAlloc fail(n);
    EXPECT_EQ(tq_get_installed_application(apps), ENOMEM);
    EXPECT_EQ(tq_list_size(apps), 0);
    tq_list_free(apps, 0);
  }
}

// Applications without a manager.
class AppRecord : public testing::Test {
 protected:
  ~AppRecord() override {
    tq_list_free(apps_, 0);
    tq_list_free(bindings_, 0);
  }

  tq_package_info package_ = {};
  tq_app_info app_ = {nullptr, &package_, 1, nullptr};
  tq_app_info other_ = {nullptr, &package_, 1, nullptr};
  tq_list_t* apps_ = tq_list_create();
  tq_list_t* bindings_ = tq_list_create();
};

TEST_F(AppRecord, IsStoppedAndUnbound) {
  tq_app_info* app = nullptr;
  ASSERT_EQ(tq_create_app_info(&package_, &app), 0);
  EXPECT_EQ(app->binding, nullptr);
  EXPECT_EQ(app->package, &package_);
  EXPECT_EQ(app->stopped, 1);
  EXPECT_EQ(app->pid, nullptr);
  std::free(app);
}

TEST_F(AppRecord, WithoutMemoryIsNullAnd12) {
  const FailAlloc fail(1);
  tq_app_info* app = &app_;
  EXPECT_EQ(tq_create_app_info(&package_, &app), ENOMEM);
  EXPECT_EQ(app, nullptr);
}

TEST_F(AppRecord, NeedsAPlaceForTheResult) {
  EXPECT_EQ(tq_create_app_info(&package_, nullptr), EINVAL);
  EXPECT_EQ(tq_get_installed_application(nullptr), EINVAL);
}

TEST_F(AppRecord, IsTakenByTheFirstBindingThatAnswers) {
  tq_app_binding refuses = {};
  refuses.is_mine = [](tq_app_info*) { return 0; };
  tq_app_binding takes = {};
  takes.is_mine = [](tq_app_info*) { return -5; };
  tq_app_binding also_takes = {};
  also_takes.is_mine = [](tq_app_info*) { return 1; };
  for (tq_app_binding* binding : {&refuses, &takes, &also_takes}) tq_list_add(bindings_, binding);
  EXPECT_EQ(tq_check_app_biniding(&app_, bindings_), -5);
  EXPECT_EQ(app_.binding, &takes);
}

TEST_F(AppRecord, StaysUnboundWhenNoBindingAnswers) {
  tq_app_binding refuses = {};
  refuses.is_mine = [](tq_app_info*) { return 0; };
  EXPECT_EQ(tq_check_app_biniding(&app_, bindings_), 0);
  tq_list_add(bindings_, &refuses);
  EXPECT_EQ(tq_check_app_biniding(&app_, bindings_), 0);
  EXPECT_EQ(app_.binding, nullptr);
  EXPECT_EQ(tq_check_app_biniding(nullptr, bindings_), 0);
  EXPECT_EQ(tq_check_app_biniding(&app_, nullptr), 0);
}

TEST_F(AppRecord, IsTriedEvenAfterOneThatStaysUnbound) {
  static const tq_app_info* refused;
  refused = &app_;
  tq_app_binding binding = {};
  binding.is_mine = [](tq_app_info* app) { return app == refused ? 0 : 1; };
  tq_list_add(bindings_, &binding);
  tq_list_add(apps_, &app_);
  tq_list_add(apps_, &other_);
  EXPECT_EQ(tq_check_all_app_binding(apps_, bindings_), 0);
  EXPECT_EQ(app_.binding, nullptr);
  EXPECT_EQ(other_.binding, &binding);
  refused = nullptr;
  EXPECT_EQ(tq_check_all_app_binding(apps_, bindings_), 1);
  EXPECT_EQ(app_.binding, &binding);
}

TEST_F(AppRecord, CheckedWithNoneIsASuccess) {
  EXPECT_EQ(tq_check_all_app_binding(apps_, bindings_), 1);
  EXPECT_EQ(tq_check_all_app_binding(nullptr, bindings_), 1);
}

TEST(LinuxBinding, HoldsItsOperationsInOrder) {
  EXPECT_EQ(linux_app_binding, nullptr);
  tq_app_binding* binding = tq_get_linux_app_binding();
  EXPECT_EQ(linux_app_binding, binding);
  EXPECT_EQ(binding->setup, &tq_setup_linux_app_binding);
  EXPECT_EQ(binding->is_mine, &tq_is_linux_app);
  EXPECT_EQ(binding->start, &tq_start_linux_app);
  EXPECT_EQ(binding->stop, &tq_stop_linux_app);

  using Operation = void (*)();
  const auto* slots = reinterpret_cast<const Operation*>(binding);
  EXPECT_EQ(sizeof(tq_app_binding), 4 * sizeof(Operation));
  EXPECT_EQ(slots[0], reinterpret_cast<Operation>(&tq_setup_linux_app_binding));
  EXPECT_EQ(slots[3], reinterpret_cast<Operation>(&tq_stop_linux_app));

  tq_app_binding* later = tq_get_linux_app_binding();
  EXPECT_NE(later, binding);
  EXPECT_EQ(linux_app_binding, later);
  std::free(binding);
  std::free(later);
}

TEST(LinuxBinding, WithoutMemoryIsNull) {
  const FailAlloc fail(1);
  EXPECT_EQ(tq_get_linux_app_binding(), nullptr);
  EXPECT_EQ(linux_app_binding, nullptr);
}

TEST(LinuxBinding, TakesEveryApplication) {
  tq_app_info app = {};
  EXPECT_EQ(tq_is_linux_app(&app), 1);
  EXPECT_EQ(tq_is_linux_app(nullptr), 1);
}

TEST(LinuxBinding, IgnoresSigchld) {
  const auto disposition = [] {
    struct sigaction action = {};
    ::sigaction(SIGCHLD, nullptr, &action);
    return action.sa_handler;
  };
  ::signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(tq_setup_linux_app_binding(), 0);
  EXPECT_EQ(disposition(), SIG_IGN);
  ::signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(tq_ignore_wait_child_process_signal(), 0);
  EXPECT_EQ(disposition(), SIG_IGN);
}

}  // namespace
}  // namespace tarvio_test
