// tarvio remove of an application, with a manager that may have started it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/com/manager.h"
#include "support/com/sockets.h"
#include "support/files.h"
#include "support/packages/package_listing.h"
#include "support/packages/tarvio_packages.h"
#include "support/programs/tarvio.h"
#include "tarvio/app.h"
#include "tarvio/com.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr tq_com_word kExactWords[] = {{"start_exact", tq_start_app_exact, nullptr},
                                       {"stop_exact", tq_stop_app_exact, nullptr},
                                       {nullptr, nullptr, nullptr}};

// An application that is installed and started, and a manager that knows it.
class ClientRemoveOfAnApplication : public WithoutPackages {
 protected:
  ClientRemoveOfAnApplication() {
    ::setenv("PATH", (tools_.path().string() + ":" + ::getenv("PATH")).c_str(), 1);
    write_program(tools_ / "opkg", "#!/bin/sh\nrm /usr/lib/opkg/info/$2.*\n");
    add_package("web");
    add_package("webserver");
  }

  static void prepare() {
    linux_app_binding->start = [](tq_app_info*) { return 0; };
    linux_app_binding->stop = [](tq_app_info* app) {  // while it is still installed
      return std::filesystem::exists(std::filesystem::path(kInformation) /
                                     (std::string(app->package->name) + ".control"))
                 ? 0
                 : ENOENT;
    };
    tq_set_com_words(kExactWords);
  }
  static bool has_status(const char* name) { return run_tarvio({"status", name}).status == 0; }

  const std::vector<Application> applications_ = {{"webserver"}, {"web"}};

 private:
  const TempDir tools_;
};

TEST_F(ClientRemoveOfAnApplication, StopsItFirst) {
  const ManagerProcess manager(applications_, prepare);
  ASSERT_EQ(run_tarvio({"start-all"}).status, 0);
  const Ran run = run_tarvio({"remove", "web"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "stopped web\nremoved web\n");
  EXPECT_EQ(run.errors,
            "tarvio: the manager was not refreshed for 'web': it is from before this was possible; "
            "restart tarviod\n");
  EXPECT_FALSE(has_status("web"));
  EXPECT_TRUE(has_status("webserver"));
}

TEST_F(ClientRemoveOfAnApplication, SaysInJsonWhetherItWasStopped) {
  const ManagerProcess manager(applications_, prepare);
  ASSERT_EQ(run_tarvio({"start", "web"}).status, 0);
  const Ran run = run_tarvio({"remove", "web", "webserver", "--json"});
  const json results = json::parse(run.output);
  EXPECT_EQ(results[0]["was_stopped"], true);
  EXPECT_EQ(results[0]["message"], "removed web");
  EXPECT_EQ(results[1]["was_stopped"], false);
}

TEST_F(ClientRemoveOfAnApplication, LeavesItRunningWhenAsked) {
  const ManagerProcess manager(applications_, prepare);
  ASSERT_EQ(run_tarvio({"start", "web"}).status, 0);
  EXPECT_EQ(run_tarvio({"remove", "web", "--keep-running"}).output, "removed web\n");
  EXPECT_TRUE(has_status("web"));
}

TEST_F(ClientRemoveOfAnApplication, SaysNothingOfOneThatWasNotStarted) {
  const ManagerProcess manager(applications_, prepare);
  EXPECT_EQ(run_tarvio({"remove", "web"}).output, "removed web\n");
}

TEST_F(ClientRemoveOfAnApplication, GoesOnWithoutAManager) {
  const Ran run = run_tarvio({"remove", "web"});
  EXPECT_EQ(run.output, "removed web\n");
  EXPECT_EQ(run.errors, "");
}

// The status may come from the system log: the manager does not know the application.
TEST_F(ClientRemoveOfAnApplication, GoesOnWhenTheManagerDoesNotKnowIt) {
  const ManagerProcess manager({}, [] {
    EXPECT_EQ(tq_set_status2(tq_add_tq_status(TQ_STATE_ERROR, 0, "web", "full"), 1), 0);
    prepare();
  });
  EXPECT_EQ(run_tarvio({"remove", "web"}).output, "removed web\n");
}

TEST_F(ClientRemoveOfAnApplication, LeavesItRunningWithoutOpkg) {
  const ManagerProcess manager(applications_, prepare);
  ASSERT_EQ(run_tarvio({"start", "web"}).status, 0);
  const PathWithout path("opkg");
  const Ran ran = run_tarvio({"remove", "web"});
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("cannot remove 'web': the tool opkg is missing"));
  EXPECT_EQ(ran.output, "");
  EXPECT_TRUE(has_status("web"));
}

TEST_F(ClientRemoveOfAnApplication, RefusesOneThatCannotBeStopped) {
  const ManagerProcess manager(applications_, [] {
    prepare();
    linux_app_binding->stop = [](tq_app_info*) { return EACCES; };
  });
  ASSERT_EQ(run_tarvio({"start", "web"}).status, 0);
  const Ran run = run_tarvio({"remove", "web"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(run.errors,
            "tarvio: cannot remove 'web': cannot stop it: Permission denied; use --keep-running to "
            "remove it anyway (13)\n");
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(kInformation) / "web.control"));
}

TEST_F(ClientRemoveOfAnApplication, GoesOnWithTheNextWhenTheManagerDoesNotAnswer) {
  const Socket silent = listen_on(TQ_COM_SOCKET_PATH, 100);
  const Ran run = run_tarvio({"remove", "web", "webserver", "--timeout", "0.05"});
  EXPECT_EQ(run.status, 5);
  EXPECT_EQ(run.output, "");
  EXPECT_THAT(run.errors, HasSubstr("tarvio: cannot remove 'web': no answer from the manager in "
                                    "time, it may be busy; use --timeout SECONDS to wait longer; "
                                    "use --keep-running to remove it anyway (110)\n"));
  EXPECT_THAT(run.errors, HasSubstr("tarvio: cannot remove 'webserver': no answer"));
}

TEST_F(ClientRemoveOfAnApplication, StopsItByAnOlderManagerIfItsNameComesFirst) {
  const ManagerProcess manager(applications_, [] {
    prepare();
    tq_set_com_words(nullptr);
  });
  ASSERT_EQ(run_tarvio({"start", "webserver"}).status, 0);
  const Ran run = run_tarvio({"remove", "webserver"});
  EXPECT_THAT(run.output, testing::StartsWith("stopped webserver\n"));
  EXPECT_THAT(run.errors, HasSubstr("cannot confirm that 'webserver' was stopped: "));
  EXPECT_FALSE(has_status("webserver"));
}

}  // namespace
}  // namespace tarvio_test
