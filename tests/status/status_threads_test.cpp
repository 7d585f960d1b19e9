// The status manager called from several threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/hooks/got_hook.h"
#include "support/hooks/log_capture.h"
#include "support/hooks/stdout_capture.h"
#include "support/status_records.h"
#include "tarvio/status_manager.h"

namespace tarvio_test {
namespace {

constexpr int kNames = 20;
constexpr int kRounds = 100;

std::string name_of(int number) { return "application " + std::to_string(number); }

// Runs each job in its own thread.
void run_together(const std::vector<std::function<void()>>& jobs) {
  const StdoutCapture output;  // updates print a line each
  std::vector<std::thread> threads;
  for (const auto& job : jobs) threads.emplace_back(job);
  for (std::thread& thread : threads) thread.join();
}

class Threads : public testing::Test {
 protected:
  Threads() { tq_setup_status_manager(); }
  ~Threads() override {
    tq_status_list_free(sl);
    sl = nullptr;
  }

  static void set_all(const char* detail) {
    for (int round = 0; round < kRounds; ++round) {
      for (int n = 0; n < kNames; ++n) {
        tq_set_application_status_normal(name_of(n).c_str(), detail);
      }
    }
  }

  static void set_and_remove_all() {
    for (int round = 0; round < kRounds; ++round) {
      for (int n = 0; n < kNames; ++n) {
        tq_set_application_status_error(name_of(n).c_str(), "gone soon");
        tq_remove_status2(name_of(n).c_str());
      }
    }
  }

  // Each name once, whole records only.
  static void find_all() {
    for (int round = 0; round < kRounds; ++round) {
      StatusList found;
      EXPECT_EQ(tq_find_all_status2(found.receive()), 0);
      check(found.statuses());
      EXPECT_EQ(tq_find_by_status2(0, found.receive()), 0);
      EXPECT_EQ(tq_find_by_type2(0, found.receive()), 0);
    }
  }

  static void check(const std::vector<Status>& statuses) {
    std::set<std::string> names;
    for (const Status& status : statuses) {
      EXPECT_TRUE(names.insert(status.name).second) << status.name << " is there twice";
      EXPECT_TRUE(status.detail == "first" || status.detail == "second" ||
                  status.detail == "gone soon")
          << status.detail;
    }
  }
};

struct Operation {
  std::string name;
  std::function<void()> run;
  int left = 1;  // records on the list afterwards
};

void PrintTo(const Operation& operation, std::ostream* stream) { *stream << operation.name; }

class Waiting : public Threads, public testing::WithParamInterface<Operation> {};

thread_local bool adds_status = false;

// The other thread starts while a status is being added. The addition goes on only once that thread
// waits for the lock, or has finished without it.
TEST_P(Waiting, LastsUntilAStatusIsAdded) {
  const StdoutCapture output;
  std::atomic<bool> waits = false;
  std::atomic<bool> done = false;
  bool done_meanwhile = false;
  std::thread other;
  Hook lock("pthread_mutex_lock", [&](pthread_mutex_t* mutex) {
    if (!adds_status) waits = true;
    return ::pthread_mutex_lock(mutex);
  });
  Hook allocate("malloc", [&](size_t size) {
    if (adds_status && !other.joinable()) {
      other = std::thread([&] {
        GetParam().run();
        done = true;
      });
      while (!waits && !done) std::this_thread::yield();
      done_meanwhile = done;
    }
    return std::malloc(size);
  });
  adds_status = true;
  tq_set_application_status_normal("a", "first");
  adds_status = false;
  ASSERT_TRUE(other.joinable());
  other.join();
  EXPECT_FALSE(done_meanwhile);
  EXPECT_EQ(tq_list_size(sl), GetParam().left);
}

void find_with(const std::function<int(tq_list_t**)>& find) {
  StatusList found;
  EXPECT_EQ(find(found.receive()), 0);
  EXPECT_EQ(found.statuses().size(), 1U);
}

void add_other() {
  const StatusChain other({{"b"}});
  EXPECT_EQ(tq_add_status2(other.get()), 0);
}

void set_up_again() {
  tq_list_t* before = sl;
  tq_setup_status_manager();
  tq_status_list_free(before);
}

INSTANTIATE_TEST_SUITE_P(
    Status, Waiting,
    testing::Values(
        Operation{"SetNormal", [] { tq_set_application_status_normal("a", "second"); }},
        Operation{"SetError", [] { tq_set_application_status_error("a", "second"); }},
        Operation{"Add", [] { add_other(); }, 2}, Operation{"SetUp", set_up_again, 0},
        Operation{"Remove", [] { tq_remove_status2("a"); }, 0},
        Operation{"RemoveApplication", [] { tq_remove_application_status("a"); }, 0},
        Operation{"FindAll", [] { find_with(tq_find_all_status2); }},
        Operation{"FindByType",
                  [] { find_with([](tq_list_t** list) { return tq_find_by_type2(0, list); }); }},
        Operation{"FindByStatus",
                  [] { find_with([](tq_list_t** list) { return tq_find_by_status2(0, list); }); }},
        Operation{"ShowList", [] { show_list2(sl); }}));

TEST_F(Threads, ThatSetTheSameNamesMakeNoDuplicates) {
  run_together({[] { set_all("first"); }, [] { set_all("second"); }, [] { find_all(); }});
  EXPECT_EQ(tq_list_size(sl), kNames);
  check(statuses_of(sl));
}

TEST_F(Threads, MaySetRemoveAndFindAtOnce) {
  run_together({[] { set_all("first"); }, [] { set_and_remove_all(); }, [] { find_all(); }});
  check(statuses_of(sl));
  for (int n = 0; n < kNames; ++n) tq_remove_status2(name_of(n).c_str());
  EXPECT_EQ(tq_list_size(sl), 0);
}

}  // namespace
}  // namespace tarvio_test
