// The application manager with a binding that a test answers for.
#ifndef TARVIO_TESTS_SUPPORT_APPS_APP_MANAGER_H
#define TARVIO_TESTS_SUPPORT_APPS_APP_MANAGER_H

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "support/com/manager.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/app.h"
#include "tarvio/log.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {

inline constexpr char kAppUnit[] = "app/tq_app_manager";

// One text per status: "NAME STATE DETAIL".
inline std::vector<std::string> all_statuses() {
  std::vector<std::string> statuses;
  tq_list_t* list = nullptr;
  EXPECT_EQ(tq_find_all_status2(&list), 0);
  for (const tq_list_node* node = list->head; node != nullptr; node = node->next) {
    const auto* status = static_cast<const tq_status*>(node->element);
    EXPECT_EQ(status->type, TQ_STATUS_TYPE_APPLICATION);
    statuses.push_back(std::string(status->name) + " " + std::to_string(status->state) + " " +
                       status->detail);
  }
  tq_status_list_free(list);
  return statuses;
}

class AppManager : public testing::Test {
 protected:
  AppManager() { running_ = this; }
  ~AppManager() override { running_ = nullptr; }

  // Sets the managers up with these applications, in this order.
  void set_up(const std::vector<std::string>& names) {
    std::vector<Application> applications;
    for (const std::string& name : names) applications.push_back({name});
    set_managers_up(applications);
    linux_app_binding->start = [](tq_app_info* app) { return running_->answer("start", app); };
    linux_app_binding->stop = [](tq_app_info* app) { return running_->answer("stop", app); };
    log_.clear();
  }
  std::vector<std::string> logged() const { return unit_messages(log_, kAppUnit); }

  std::vector<std::string> calls_;  // what the binding was asked for, "start clock"
  std::deque<int> answers_;         // what it is going to answer, 0 when empty
  tq_app_info* app_ = nullptr;      // that it was asked for last
  LogCapture log_{TQ_LOG_DEBUG};

 private:
  int answer(const std::string& operation, tq_app_info* app) {
    calls_.push_back(operation + " " + app->package->name);
    app_ = app;
    if (answers_.empty()) return 0;
    const int answer = answers_.front();
    answers_.pop_front();
    return answer;
  }

  static inline AppManager* running_ = nullptr;
};

}  // namespace tarvio_test

#endif
