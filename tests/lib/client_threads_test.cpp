#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/com/manager.h"
#include "support/com/sockets.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 25;

// The manager answers on a thread of this process, so that the thread sanitizer sees both sides.
class ClientThreads : public testing::Test {
 protected:
  ClientThreads() {
    set_managers_up({{"clock"}, {"webserver"}});
    linux_app_binding->start = [](tq_app_info*) { return 0; };
    linux_app_binding->stop = [](tq_app_info*) { return 0; };
    EXPECT_EQ(tq_setup_com_manager(), 0);
  }

  template <typename Work>
  static void run(Work work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([i, work] {
        for (int round = 0; round < kRounds; ++round) work(i, round);
      });
    }
    for (std::thread& thread : threads) thread.join();
  }
};

TEST_F(ClientThreads, StatusesStayWholeWhileOthersChangeThem) {
  std::atomic<int> torn = 0;
  run([&](int thread, int round) {
    const std::string name = "status-" + std::to_string(thread);
    if (round % 3 == 0) {
      tq_set_application_status_normal(name.c_str(), std::string(200, 'n').c_str());
    } else if (round % 3 == 1) {
      tq_set_application_status_error(name.c_str(), std::string(200, 'e').c_str());
    } else {
      tq_remove_application_status(name.c_str());
    }
    tq_list_t* list = tq_list_create();
    if (tq_lib_list_all_status(list) != 0) ++torn;
    for (const tq_list_node* node = list->head; node != nullptr; node = node->next) {
      const auto* status = static_cast<const tq_status*>(node->element);
      const std::string detail = std::string(200, status->id == 0 ? 'n' : 'e') + "\n";
      if (!std::string(status->name).starts_with("status-") || status->detail != detail) ++torn;
    }
    tq_status_list_free(list);
  });
  EXPECT_EQ(torn, 0);
}

TEST_F(ClientThreads, StartsAndStopsReachTheManagerOneByOne) {
  std::atomic<int> failures = 0;
  run([&](int thread, int round) {
    const char* name = thread % 2 == 0 ? "clock" : "webserver";
    int result = 0;
    switch (round % 4) {
      case 0:
        result = tq_lib_start_app(name);
        break;
      case 1:
        result = tq_lib_stop_app(name);
        break;
      case 2:
        result = tq_lib_start_all_app();
        break;
      default:
        result = tq_lib_stop_all_app();
        break;
    }
    if (result != 0) ++failures;
  });
  EXPECT_EQ(failures, 0);
  tq_lib_stop_all_app();
  tq_lib_start_all_app();
  EXPECT_EQ(ask(TQ_COM_SOCKET_PATH, "status_all\n"),
            "clock\n0\nstarted app\nwebserver\n0\nstarted app\n");
}

TEST_F(ClientThreads, PackageCallsSetTheManagerUpOnce) {
  tq_package_binding* const binding = tq_tbx_package_binding;
  run([&](int, int) {
    tq_package_info* packages = nullptr;
    tq_lib_list_pkg(TQ_CATEGORY_ANY, TQ_SUBCATEGORY_ANY, "no-such", &packages);
    tq_delete_tq_package_info_recurse(&packages);
  });
  EXPECT_EQ(tq_tbx_package_binding, binding);
}

}  // namespace
}  // namespace tarvio_test
