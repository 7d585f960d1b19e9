// The form of the file of states and figures.
#include "runtime/state_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace tarvio_test {
namespace {

using runtime::AppState;
using runtime::ExitKind;
using runtime::StateFile;

const std::string kHead =
    "tarvio-state\t1\nboot\t12345678-1234-1234-1234-123456789abc\nmanager\t77\t4242\n"
    "descriptors\t12\t1024\n";
const std::string kClock = "app\tclock\trunning\t99\t1700000000\t3\tstatus 1\t1.1\t1.0\n";

std::vector<runtime::AppLine> apps_of(const StateFile& file) {
  std::vector<runtime::AppLine> apps;
  file.each_app([&](const runtime::AppLine& app) { apps.push_back(app); });
  return apps;
}

std::string boot_id() {
  runtime::BootId id;
  EXPECT_TRUE(runtime::read_boot_id(id));
  return id.text;
}

std::string head_of(const std::string& boot, const runtime::ProcessId& manager) {
  return "tarvio-state\t1\nboot\t" + boot + "\nmanager\t" + std::to_string(manager.pid) + "\t" +
         std::to_string(manager.start) + "\ndescriptors\t12\t1024\nend\n";
}

runtime::ProcessId own_process() {
  runtime::ProcessFacts facts;
  EXPECT_TRUE(runtime::read_process(getpid(), facts));
  return facts.id;
}

TEST(StateFile, SaysWhoWroteIt) {
  const std::string text = kHead + "end\n";
  const auto file = StateFile::parse(text);
  ASSERT_TRUE(file);
  EXPECT_EQ(file->boot(), "12345678-1234-1234-1234-123456789abc");
  EXPECT_EQ(file->manager().pid, 77);
  EXPECT_EQ(file->manager().start, 4242U);
  EXPECT_EQ(file->descriptors_used(), 12);
  EXPECT_EQ(file->descriptor_limit(), 1024);
}

TEST(StateFile, HasALineForEachApplication) {
  const std::string text = kHead + kClock + "app\tmark\tstopped\t0\t0\t0\t-\t2.0\t-\nend\n";
  const auto file = StateFile::parse(text);
  ASSERT_TRUE(file);
  const std::vector<runtime::AppLine> apps = apps_of(*file);
  ASSERT_EQ(apps.size(), 2U);
  EXPECT_EQ(apps[0].name, "clock");
  EXPECT_EQ(apps[0].state, AppState::kRunning);
  EXPECT_EQ(apps[0].pid, 99);
  EXPECT_EQ(apps[0].since, 1'700'000'000);
  EXPECT_EQ(apps[0].starts, 3);
  EXPECT_EQ(apps[0].exit.kind, ExitKind::kStatus);
  EXPECT_EQ(apps[0].exit.number, 1);
  EXPECT_EQ(apps[0].installed, "1.1");
  EXPECT_EQ(apps[0].running, "1.0");
  EXPECT_EQ(apps[1].state, AppState::kStopped);
  EXPECT_EQ(apps[1].exit.kind, ExitKind::kNone);
  EXPECT_EQ(apps[1].running, "");
}

TEST(StateFile, KnowsHowAnApplicationHasEnded) {
  const std::string text = kHead + "app\ta\tended\t0\t1\t1\tsignal 11\t1\t-\n" +
                           "app\tb\trestarting\t0\t1\t1\tnot-run 13\t1\t-\n" +
                           "app\tc\tended\t0\t1\t1\tno-output 2\t1\t-\n" +
                           "app\td\tended\t0\t1\t1\tno-limits 1\t1\t-\n" +
                           "app\te\tended\t0\t1\t1\tno-user 22\t1\t-\nend\n";
  const auto file = StateFile::parse(text);
  ASSERT_TRUE(file);
  const std::vector<runtime::AppLine> apps = apps_of(*file);
  ASSERT_EQ(apps.size(), 5U);
  EXPECT_EQ(apps[0].exit.kind, ExitKind::kSignal);
  EXPECT_EQ(apps[0].exit.number, 11);
  EXPECT_EQ(apps[1].exit.kind, ExitKind::kNotRun);
  EXPECT_EQ(apps[1].exit.number, 13);
  EXPECT_STREQ(apps[1].exit.failed_step(), "cannot run its start file");
  EXPECT_FALSE(apps[0].exit.is_not_run());
  EXPECT_TRUE(apps[1].exit.is_not_run());
  EXPECT_STREQ(apps[2].exit.failed_step(), "cannot open its output");
  EXPECT_STREQ(apps[3].exit.failed_step(), "cannot set its priority and limits");
  EXPECT_STREQ(apps[4].exit.failed_step(), "cannot become its user");
  EXPECT_EQ(apps[4].exit.number, 22);
}

TEST(StateFile, HasTheStatuses) {
  const std::string text = kHead + "status\t2\tclock\tdisk full, really\nstatus\t0\tmark\t\nend\n";
  const auto file = StateFile::parse(text);
  ASSERT_TRUE(file);
  std::vector<std::string> found;
  file->each_status([&](const runtime::StatusLine& line) {
    found.push_back(std::to_string(line.level) + " " + std::string(line.name) + " " +
                    std::string(line.detail));
  });
  EXPECT_THAT(found, testing::ElementsAre("2 clock disk full, really", "0 mark "));
}

TEST(StateFile, IsWhole) {
  const std::vector<std::string> texts = {
      "",
      "\n",
      "end\n",
      kHead,
      kHead + kClock,
      kHead + "end",
      kHead + "end\n\n",
      kHead + "end\nend\n",
      "tarvio-state\t2\n" + kHead.substr(kHead.find('\n') + 1) + "end\n",
      kHead.substr(kHead.find('\n') + 1) + "end\n",
      kHead + "other\tx\nend\n",
      kHead + "app\tclock\nend\n",
      kHead + "app\t\trunning\t9\t1\t1\t-\t1\t1\nend\n",
      kHead + "app\tclock\tflying\t9\t1\t1\t-\t1\t1\nend\n",
      kHead + "app\tclock\trunning\tx\t1\t1\t-\t1\t1\nend\n",
      kHead + "app\tclock\trunning\t99999999999\t1\t1\t-\t1\t1\nend\n",
      kHead + "app\tclock\trunning\t9\t1\t1\tstatus\t1\t1\nend\n",
      kHead + "app\tclock\trunning\t9\t1\t1\tgone 3\t1\t1\nend\n",
      kHead + "app\tclock\trunning\t9\t1\t1\t-\t1\t1\tmore\nend\n",
      kHead + "status\tx\tclock\tdetail\nend\n",
      kHead + "status\t0\tclock\nend\n",
      std::string(3, '\0') + "\n"};
  for (const std::string& text : texts) EXPECT_FALSE(StateFile::parse(text)) << text;
}

TEST(StateFile, IsCurrentWhileItsWriterRuns) {
  const std::string text = head_of(boot_id(), own_process());
  const auto file = StateFile::parse(text);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->is_current());
}

TEST(StateFile, IsNotCurrentWithALaterProcessOfTheSameNumber) {
  runtime::ProcessId earlier = own_process();
  earlier.start -= 1;
  const std::string text = head_of(boot_id(), earlier);
  const auto file = StateFile::parse(text);
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->is_of_this_boot());
  EXPECT_FALSE(file->is_current());
}

TEST(StateFile, OfAnotherBootIsNotCurrent) {
  const std::string text = head_of("12345678-1234-1234-1234-123456789abc", own_process());
  const auto file = StateFile::parse(text);
  ASSERT_TRUE(file);
  EXPECT_FALSE(file->is_of_this_boot());
  EXPECT_FALSE(file->is_current());
}

}  // namespace
}  // namespace tarvio_test
