#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "support/apps/app_manager.h"
#include "support/files.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/live_allocations.h"
#include "support/packages/package_listing.h"
#include "tarvio/app.h"
#include "tarvio/package.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

// The applications that the manager knows, in order.
std::vector<tq_app_info*> known() {
  std::vector<tq_app_info*> apps;
  const tq_list_t* list = tq_known_applications();
  for (const tq_list_node* node = list->head; node != nullptr; node = node->next)
    apps.push_back(static_cast<tq_app_info*>(node->element));
  EXPECT_EQ(tq_list_size(list), static_cast<int32_t>(apps.size()));
  return apps;
}

std::vector<std::string> known_names() {
  std::vector<std::string> names;
  for (const tq_app_info* app : known()) names.emplace_back(app->package->name);
  return names;
}

tq_app_info* known_app(const std::string& name) {
  for (tq_app_info* app : known())
    if (app->package->name == name) return app;
  ADD_FAILURE() << name << " is not known";
  return nullptr;
}

void remove_package(const std::string& name) {
  fs::remove(fs::path(kInformation) / (name + ".control"));
}

void write_control(const std::string& file, const std::string& name, const std::string& version,
                   const std::string& maintainer = "Halvern") {
  write_information(file + ".control", "Package: " + name + "\nVersion: " + version +
                                           "\nMaintainer: " + maintainer + "\n");
}

// What a listing and its release leave: less than 0, since libc allocates the directory's entries,
// which are not counted, and the library frees them.
long left_by_a_listing(const LiveAllocations& live) {
  const long before = live.count();
  { const Listing listing; }
  return live.count() - before;
}

// The manager with a binding that starts and stops nothing.
class AppRefresh : public testing::Test {
 protected:
  void set_up(const std::vector<std::string>& names) {
    for (const std::string& name : names) add_package(name);
    tq_setup_status_manager();
    tq_setup_package_manager();
    ASSERT_EQ(tq_setup_app_manager(), 1);
    calls_.clear();
    answer_ = 0;
    linux_app_binding->start = [](tq_app_info* app) {
      app->pid = static_cast<int32_t*>(std::malloc(sizeof(int32_t)));
      return 0;
    };
    linux_app_binding->stop = [](tq_app_info* app) {
      calls_.push_back(std::string("stop ") + app->package->name + " " + app->package->version);
      return answer_;
    };
  }

  // What it changed, "1 added, 0 removed, 2 changed"; with the code when it failed.
  std::string refresh() {
    tq_refresh_result result = {.added = -1, .removed = -1, .changed = -1};
    const int code = tq_refresh_applications(&result);
    return std::to_string(result.added) + " added, " + std::to_string(result.removed) +
           " removed, " + std::to_string(result.changed) + " changed" +
           (code == 0 ? "" : ", code " + std::to_string(code));
  }

  static inline std::vector<std::string> calls_;  // of the stop operation
  static inline int answer_ = 0;                  // its result
  LogCapture log_{TQ_LOG_DEBUG};
};

TEST_F(AppRefresh, KnowsWhatWasInstalledSinceWhereARestartWouldHaveIt) {
  set_up({"alpha", "gamma"});
  add_package("beta");
  add_package("delta");
  add_package("kernel", "Image");
  EXPECT_EQ(refresh(), "2 added, 0 removed, 0 changed");
  EXPECT_THAT(known_names(), ElementsAre("gamma", "delta", "beta", "alpha"));
  EXPECT_EQ(known_app("beta")->binding, linux_app_binding);
  EXPECT_EQ(known_app("beta")->stopped, 1);
  EXPECT_EQ(tq_start_app_exact("beta"), 0);
  EXPECT_THAT(all_statuses(), ElementsAre("beta 0 started app"));
}

TEST_F(AppRefresh, KnowsTheFirstApplicationAndForgetsTheLastOne) {
  set_up({});
  add_package("alpha");
  EXPECT_EQ(refresh(), "1 added, 0 removed, 0 changed");
  EXPECT_THAT(known_names(), ElementsAre("alpha"));
  remove_package("alpha");
  EXPECT_EQ(refresh(), "0 added, 1 removed, 0 changed");
  EXPECT_THAT(known_names(), IsEmpty());
}

TEST_F(AppRefresh, WithoutAChangeLeavesRecordsPackagesAndMemoryAsTheyWere) {
  set_up({"alpha", "beta"});
  tq_start_app("alpha");
  const std::vector<tq_app_info*> apps = known();
  const tq_app_info alpha = *known_app("alpha");
  const LiveAllocations live;
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed");
  const long left = live.count();
  EXPECT_EQ(left, left_by_a_listing(live));
  EXPECT_EQ(known(), apps);
  EXPECT_EQ(known_app("alpha")->package, alpha.package);
  EXPECT_EQ(known_app("alpha")->pid, alpha.pid);
  EXPECT_EQ(known_app("alpha")->stopped, 0);
  EXPECT_THAT(all_statuses(), ElementsAre("alpha 0 started app"));
  EXPECT_THAT(calls_, IsEmpty());
}

TEST_F(AppRefresh, ForgetsAStoppedApplicationWithItsStatus) {
  set_up({"alpha", "beta"});
  tq_set_application_status_error("alpha", "trouble");
  remove_package("alpha");
  EXPECT_EQ(refresh(), "0 added, 1 removed, 0 changed");
  EXPECT_THAT(known_names(), ElementsAre("beta"));
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_THAT(all_statuses(), IsEmpty());
  EXPECT_EQ(tq_start_app("alpha"), EINVAL);
}

TEST_F(AppRefresh, StopsARunningApplicationWhosePackageWentWithItsOldPackage) {
  set_up({"alpha", "beta"});
  tq_start_app("alpha");
  tq_start_app("beta");
  remove_package("alpha");
  EXPECT_EQ(refresh(), "0 added, 1 removed, 0 changed");
  EXPECT_THAT(calls_, ElementsAre("stop alpha 1.0"));
  EXPECT_THAT(known_names(), ElementsAre("beta"));
  EXPECT_THAT(all_statuses(), ElementsAre("beta 0 started app"));
}

TEST_F(AppRefresh, KnowsTheNewApplicationsWhenItStopsTheOldOnes) {
  set_up({"alpha"});
  tq_start_app("alpha");
  remove_package("alpha");
  add_package("beta");
  static std::vector<std::string> names;
  linux_app_binding->stop = [](tq_app_info*) {
    names = known_names();
    return 0;
  };
  EXPECT_EQ(refresh(), "1 added, 1 removed, 0 changed");
  EXPECT_THAT(names, ElementsAre("beta", "alpha"));
}

TEST_F(AppRefresh, KeepsAnApplicationThatDoesNotStopAfterTheOthers) {
  set_up({"alpha", "beta", "gamma"});
  for (const char* name : {"beta", "gamma"}) tq_start_app(name);
  remove_package("beta");
  remove_package("gamma");
  answer_ = EINPROGRESS;
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed, code " + std::to_string(EINPROGRESS));
  EXPECT_THAT(known_names(), ElementsAre("alpha", "gamma", "beta"));
  EXPECT_EQ(known_app("beta")->stopped, 0);
  EXPECT_THAT(all_statuses(), ElementsAre("beta 2 Stop App Failed", "gamma 2 Stop App Failed"));
  answer_ = 0;
  EXPECT_EQ(refresh(), "0 added, 2 removed, 0 changed");
  EXPECT_THAT(known_names(), ElementsAre("alpha"));
  EXPECT_THAT(all_statuses(), IsEmpty());
}

TEST_F(AppRefresh, LetsAnUpgradedApplicationRun) {
  set_up({"alpha", "beta"});
  tq_start_app("beta");
  tq_app_info* const beta = known_app("beta");
  const int32_t* const pid = beta->pid;
  write_control("beta", "beta", "2.0");
  EXPECT_EQ(refresh(), "0 added, 0 removed, 1 changed");
  EXPECT_EQ(known_app("beta"), beta);
  EXPECT_STREQ(beta->package->version, "2.0");
  EXPECT_EQ(beta->pid, pid);
  EXPECT_EQ(beta->stopped, 0);
  EXPECT_EQ(beta->binding, linux_app_binding);
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_THAT(all_statuses(), ElementsAre("beta 0 started app"));
}

TEST_F(AppRefresh, SeesEveryFieldOfAPackageThatChanged) {
  set_up({"alpha"});
  const auto file = [](const char* extension) { return std::string("alpha") + extension; };
  write_information(file(".tqstartapp"), "#!/bin/sh\n");
  EXPECT_EQ(refresh(), "0 added, 0 removed, 1 changed");
  EXPECT_EQ(known_app("alpha")->package->start_app, kInformation + ("/" + file(".tqstartapp")));
  write_information(file(".tqstopapp"), "#!/bin/sh\n");
  EXPECT_EQ(refresh(), "0 added, 0 removed, 1 changed");
  EXPECT_EQ(known_app("alpha")->package->stop_app, kInformation + ("/" + file(".tqstopapp")));
  write_control("alpha", "alpha", "1.0", "Another");
  EXPECT_EQ(refresh(), "0 added, 0 removed, 1 changed");
  add_package("alpha", "Application", "Application_Java");  // and the maintainer of before
  EXPECT_EQ(refresh(), "0 added, 0 removed, 1 changed");
  EXPECT_EQ(known_app("alpha")->package->subtype, TQ_SUBCATEGORY_JAVA);
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed");
}

TEST_F(AppRefresh, LosesNoMemoryHoweverOftenPackagesComeAndGo) {
  set_up({"alpha", "beta", "gamma"});
  tq_start_app("alpha");
  constexpr int kRounds = 3;
  const LiveAllocations live;
  for (int round = 0; round < kRounds; ++round) {
    write_control("alpha", "alpha", "2.0");
    remove_package("beta");
    add_package("delta");
    EXPECT_EQ(refresh(), "1 added, 1 removed, 1 changed");
    tq_start_app("delta");
    write_control("alpha", "alpha", "1.0");
    add_package("beta");
    remove_package("delta");
    EXPECT_EQ(refresh(), "1 added, 1 removed, 1 changed");
  }
  // Each refresh lists twice, the second time for what went. And the manager frees the cell with
  // the pid of each delta, which is the test's.
  const long left = live.count();
  EXPECT_EQ(left, kRounds * (2 * 2 * left_by_a_listing(live) - 1));
  EXPECT_THAT(known_names(), ElementsAre("gamma", "beta", "alpha"));
}

TEST_F(AppRefresh, KeepsARecordForEachOfTwoPackagesOfOneName) {
  set_up({"alpha"});
  write_control("other", "alpha", "1.0");
  EXPECT_EQ(refresh(), "1 added, 0 removed, 0 changed");
  EXPECT_THAT(known_names(), ElementsAre("alpha", "alpha"));
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed");
}

TEST_F(AppRefresh, DoesNotStartAnApplicationThatNoBindingTakes) {
  set_up({});
  linux_app_binding->is_mine = [](tq_app_info*) { return 0; };
  add_package("alpha");
  EXPECT_EQ(refresh(), "1 added, 0 removed, 0 changed");
  EXPECT_EQ(known_app("alpha")->binding, nullptr);
  EXPECT_EQ(tq_start_app("alpha"), EINVAL);
}

TEST_F(AppRefresh, ThatCannotListChangesNothing) {
  set_up({"alpha"});
  fs::rename(kInformation, std::string(kInformation) + ".away");
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed, code " + std::to_string(ENOENT));
  EXPECT_THAT(known_names(), ElementsAre("alpha"));
}

int cannot_open(const char*, int, ...) {
  errno = EIO;
  return -1;
}

// The listing returns packages and fails all the same.
TEST_F(AppRefresh, WithoutABootTestChangesNothing) {
  set_up({"alpha"});
  add_package("beta");
  const LiveAllocations live;
  {
    const Hook open("open", &cannot_open);
    EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed, code " + std::to_string(EIO));
  }
  const long left = live.count();
  EXPECT_EQ(left, left_by_a_listing(live));
  EXPECT_THAT(known_names(), ElementsAre("alpha"));
}

// A listing also leaves out packages when memory runs out.
TEST_F(AppRefresh, WithoutMemoryNeitherStopsNorForgetsWhatIsInstalled) {
  set_up({"alpha", "beta"});
  tq_start_app("alpha");
  const std::vector<tq_app_info*> before = known();
  bool is_over = false;
  for (int n = 1; !is_over; ++n) {
    add_package("gamma");
    {
      const FailAlloc fail(n);
      const int code = tq_refresh_applications(nullptr);
      is_over = !fail.happened();
      if (code != 0) {
        EXPECT_EQ(known(), before) << n;
      }
    }
    remove_package("gamma");
    EXPECT_EQ(tq_refresh_applications(nullptr), 0);
    EXPECT_EQ(known(), before) << n;
  }
  EXPECT_THAT(calls_, IsEmpty());
  EXPECT_EQ(known_app("alpha")->stopped, 0);
}

TEST_F(AppRefresh, NeedsNoPlaceForTheResult) {
  set_up({});
  add_package("alpha");
  EXPECT_EQ(tq_refresh_applications(nullptr), 0);
  EXPECT_THAT(known_names(), ElementsAre("alpha"));
}

TEST(AppRefreshAlone, NeedsASetUp) {
  tq_refresh_result result = {.added = 1, .removed = 1, .changed = 1};
  EXPECT_EQ(tq_refresh_applications(&result), EINVAL);
  EXPECT_EQ(result.added, 0);
  EXPECT_EQ(result.removed, 0);
  EXPECT_EQ(result.changed, 0);
}

TEST(AppRefreshAlone, NeedsThePackageManager) {
  const LogCapture log;
  tq_setup_status_manager();
  tq_setup_app_manager();
  EXPECT_EQ(tq_refresh_applications(nullptr), EINVAL);
}

// A host's own list operation: two static records, of which each call lists some.
tq_package_info host_packages[2] = {};
int host_count = 2;

int list_of_the_host(uint32_t, uint32_t, const char*, tq_package_info** out) {
  static char names[][6] = {"beta", "alpha"};
  for (const int n : {0, 1}) host_packages[n].name = names[n];
  host_packages[0].next = host_count == 2 ? &host_packages[1] : nullptr;
  *out = host_packages;
  return 0;
}

TEST_F(AppRefresh, KeepsAnApplicationThatCannotBeLookedUp) {
  set_up({});
  tq_tbx_package_binding->list = list_of_the_host;
  EXPECT_EQ(refresh(), "2 added, 0 removed, 0 changed");
  host_count = 1;
  tq_tbx_package_binding->list = [](uint32_t type, uint32_t subtype, const char* name,
                                    tq_package_info** out) {
    return name == nullptr ? list_of_the_host(type, subtype, name, out) : EIO;
  };
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed, code " + std::to_string(EIO));
  EXPECT_THAT(known_names(), ElementsAre("beta", "alpha"));
}

TEST_F(AppRefresh, NeitherFreesNorChangesTheRecordsOfAHostsOwnListing) {
  set_up({});
  tq_tbx_package_binding->list = list_of_the_host;
  EXPECT_EQ(refresh(), "2 added, 0 removed, 0 changed");
  EXPECT_EQ(host_packages[0].next, &host_packages[1]);
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed");
  host_count = 1;
  EXPECT_EQ(refresh(), "0 added, 1 removed, 0 changed");
  EXPECT_THAT(known_names(), ElementsAre("beta"));
  EXPECT_EQ(known_app("beta")->package, &host_packages[0]);

  tq_tbx_package_binding->list = [](auto... arguments) {
    return list_of_the_host(arguments...) + EIO;
  };
  EXPECT_EQ(refresh(), "0 added, 0 removed, 0 changed, code " + std::to_string(EIO));
  EXPECT_THAT(known_names(), ElementsAre("beta"));

  // Nor later, when the library lists again, whose records are not freed from now on either.
  tq_tbx_package_binding->list = tq_tbx_list;
  add_package("beta");
  EXPECT_EQ(refresh(), "0 added, 0 removed, 1 changed");
  tq_package_info* listed = known_app("beta")->package;
  remove_package("beta");
  EXPECT_EQ(refresh(), "0 added, 1 removed, 0 changed");
  EXPECT_STREQ(host_packages[0].name, "beta");
  EXPECT_STREQ(listed->name, "beta");
  tq_delete_tq_package_info_recurse(&listed);
}

TEST_F(AppRefresh, DoesNotFreeWhatAHostListedAtTheSetUp) {
  tq_setup_status_manager();
  tq_setup_package_manager();
  host_count = 2;
  tq_tbx_package_binding->list = list_of_the_host;
  ASSERT_EQ(tq_setup_app_manager(), 1);
  tq_tbx_package_binding->list = tq_tbx_list;
  add_package("alpha");
  EXPECT_EQ(refresh(), "0 added, 1 removed, 1 changed");
  EXPECT_STREQ(known_app("alpha")->package->version, "1.0");
  EXPECT_EQ(host_packages[0].next, &host_packages[1]);
}

}  // namespace
}  // namespace tarvio_test
