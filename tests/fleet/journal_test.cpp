// What the agent remembers of requests.
#include "request_journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/resource.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "support/files.h"

namespace tarvio_test {
namespace {

using agent::Journal;
using agent::JournalEntry;
using agent::Json;
using State = agent::JournalEntry::State;
using testing::ElementsAre;
using testing::IsEmpty;

const agent::ReturnAddress kAnn = {.topic = "topic", .correlation = {"\0\xff", 2}};
const agent::ReturnAddress kBob = {.topic = "other", .correlation = ""};

class AgentJournal : public testing::Test {
 protected:
  static Json answer(const std::string& id) {
    return {{"id", id}, {"state", "done"}, {"message", "Success"}, {"result", {1, 2, 3}}};
  }
  static void complete(Journal& journal, const std::string& id) {
    journal.add(id, "{}", 7, kAnn);
    journal.finish(id, answer(id));
    journal.deliver(id);
  }
  std::string file() const { return directory_ / "journal"; }

  const TempDir directory_;
};

TEST_F(AgentJournal, IsEmptyAtFirst) {
  const Journal journal(file());
  EXPECT_EQ(journal.find("r1"), nullptr);
  EXPECT_THAT(journal.ids_in(State::kWaiting), IsEmpty());
}

TEST_F(AgentJournal, RemembersWhatWasBegun) {
  Journal(file()).add("r1", "the request", 7, kAnn);
  const Journal journal(file());
  ASSERT_THAT(journal.ids_in(State::kWaiting), ElementsAre("r1"));
  const JournalEntry& entry = *journal.find("r1");
  EXPECT_EQ(entry.payload, "the request");
  EXPECT_EQ(entry.work, 7U);
  EXPECT_THAT(entry.askers, ElementsAre(kAnn));
}

TEST_F(AgentJournal, KeepsAnAnswerWholeUntilItIsDelivered) {
  {
    Journal journal(file());
    journal.add("r1", "{}", 7, kAnn);
    journal.finish("r1", answer("r1"));
  }
  Journal journal(file());
  ASSERT_THAT(journal.ids_in(State::kAnswered), ElementsAre("r1"));
  EXPECT_EQ(Json::parse(journal.find("r1")->answer), answer("r1"));
  journal.deliver("r1");
  Json rest = answer("r1");
  rest.erase("result");
  EXPECT_EQ(Json::parse(Journal(file()).find("r1")->answer), rest);
}

TEST_F(AgentJournal, KeepsTheOrder) {
  Journal journal(file());
  for (const char* id : {"b", "a", "c"}) journal.add(id, "{}", 7, kAnn);
  journal.finish("a", answer("a"));
  EXPECT_THAT(journal.ids_in(State::kWaiting), ElementsAre("b", "c"));
}

TEST_F(AgentJournal, KnowsTheLast1000) {
  {
    Journal journal(file());
    journal.add("open", "{}", 7, kAnn);
    for (int number = 0; number < 2500; ++number) complete(journal, std::to_string(number));
  }
  const Journal journal(file());
  EXPECT_NE(journal.find("open"), nullptr);
  EXPECT_NE(journal.find("2499"), nullptr);
  EXPECT_NE(journal.find("1501"), nullptr);
}

TEST_F(AgentJournal, StaysSmall) {
  Journal journal(file());
  for (int number = 0; number < 5000; ++number) complete(journal, std::to_string(number));
  EXPECT_LT(std::filesystem::file_size(file()), 1'000'000U);
}

TEST_F(AgentJournal, StaysSmallWithLongAnswers) {
  Journal journal(file());
  Json answer = this->answer("");
  answer["result"] = std::string(100'000, 'x');
  for (int number = 0; number < 100; ++number) {
    const std::string id = std::to_string(number);
    journal.add(id, "{}", 7, kAnn);
    journal.finish(id, answer);
    journal.deliver(id);
    ASSERT_LT(std::filesystem::file_size(file()), 1'200'000U) << number;
  }
  EXPECT_NE(Journal(file()).find("0"), nullptr);
}

// What is not delivered yet is kept, however much that is.
TEST_F(AgentJournal, KeepsLongAnswers) {
  Json answer = this->answer("");
  answer["result"] = std::string(300'000, 'x');
  {
    Journal journal(file());
    for (const char* id : {"a", "b", "c", "d", "e", "f"}) {
      journal.add(id, "{}", 7, kAnn);
      journal.finish(id, answer);
    }
  }
  const Journal journal(file());
  EXPECT_THAT(journal.ids_in(State::kAnswered), ElementsAre("a", "b", "c", "d", "e", "f"));
  EXPECT_EQ(Json::parse(journal.find("a")->answer), answer);
}

// As a power cut leaves it.
TEST_F(AgentJournal, DoesWithoutALastLineThatIsCut) {
  {
    Journal journal(file());
    journal.add("r1", "{}", 7, kAnn);
    journal.add("r2", "{}", 7, kAnn);
  }
  const std::string whole = read_file(file());
  for (size_t size = 0; size < whole.size(); ++size) {
    write_file(file(), whole.substr(0, size));
    Journal journal(file());
    const bool has_first = size > whole.find('\n');
    EXPECT_EQ(journal.find("r1") != nullptr, has_first) << size;
    EXPECT_EQ(journal.find("r2"), nullptr) << size;
    complete(journal, "r3");
    EXPECT_NE(Journal(file()).find("r3"), nullptr) << size;
  }
}

TEST_F(AgentJournal, DoesWithoutLinesOfAnythingElse) {
  const std::string whole = R"({"asked":"r1","topic":"t","correlation":"","payload":"{}","work":1})"
                            "\n";
  for (const std::string line :
       {R"({"finished":"ghost","answer":"{}"})", "[]", "nonsense", "", "null", R"({"x":1})",
        R"({"asked":1,"topic":"t"})", R"({"asked":"r2","topic":1})",
        R"({"asked":"r2","topic":"t","correlation":"+1"})",
        R"({"asked":"r2","topic":"t","correlation":"0"})",
        R"({"asked":"r1","topic":"t","correlation":""})", R"({"finished":"r1","answer":"no JSON"})",
        R"({"finished":"r1"})", R"({"delivered":"r1"})", R"({"asked_again":"r1","topic":7})"}) {
    write_file(file(), whole + line + "\n" + std::string(3, '\0') + "\n");
    Journal journal(file());
    EXPECT_EQ(journal.damaged_lines(), 2U) << line;
    EXPECT_THAT(journal.ids_in(State::kWaiting), ElementsAre("r1")) << line;
    EXPECT_EQ(journal.find("ghost"), nullptr) << line;
    EXPECT_EQ(Journal(file()).damaged_lines(), 0U) << line;
  }
}

TEST_F(AgentJournal, RemembersWhatWasStartedAndWhoAsksAgain) {
  {
    Journal journal(file());
    journal.add("r1", "{}", 7, kAnn);
    journal.add("r2", "{}", 7, kAnn);
    journal.start("r1");
    journal.add_asker("r1", kBob);
  }
  const Journal journal(file());
  EXPECT_EQ(journal.damaged_lines(), 0U);
  EXPECT_THAT(journal.ids_in(State::kRunning), ElementsAre("r1"));
  EXPECT_THAT(journal.ids_in(State::kWaiting), ElementsAre("r2"));
  EXPECT_THAT(journal.find("r1")->askers, ElementsAre(kAnn, kBob));
}

TEST_F(AgentJournal, KeepsAllOfThatWhenItIsWrittenAgain) {
  {
    Journal journal(file());
    journal.add("r1", "the request", 7, kAnn);
    journal.start("r1");
    journal.add_asker("r1", kBob);
    journal.add("r2", "{}", 7, kAnn);
    journal.add("r3", "{}", 7, kAnn);
    journal.finish("r3", answer("r3"));
    write_file(file(), read_file(file()) + "nonsense\n");
  }
  EXPECT_EQ(Journal(file()).damaged_lines(), 1U);  // and written again
  const Journal journal(file());
  EXPECT_EQ(journal.damaged_lines(), 0U);
  EXPECT_THAT(journal.ids_in(State::kRunning), ElementsAre("r1"));
  EXPECT_EQ(journal.find("r1")->payload, "the request");
  EXPECT_EQ(journal.find("r1")->work, 7U);
  EXPECT_THAT(journal.find("r1")->askers, ElementsAre(kAnn, kBob));
  EXPECT_THAT(journal.ids_in(State::kWaiting), ElementsAre("r2"));
  EXPECT_EQ(Json::parse(journal.find("r3")->answer), answer("r3"));
}

TEST_F(AgentJournal, ForgetsNothingOnAFullDisk) {
  Journal journal(file());
  journal.add("r1", "{}", 7, kAnn);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit full = before;
  full.rlim_cur = std::filesystem::file_size(file()) + 10;
  setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_THROW(journal.add("r2", "{}", 7, kAnn), std::runtime_error);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(journal.find("r2"), nullptr);
  journal.add("r3", "{}", 7, kAnn);
  EXPECT_THAT(Journal(file()).ids_in(State::kWaiting), ElementsAre("r1", "r3"));
}

// A file system of a few pages, which others fill.
class AgentJournalOnASmallDisk : public AgentJournal {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mount("tmpfs", directory_.path().c_str(), "tmpfs", 0, "size=64k"), 0);
  }
  void TearDown() override { ::umount2(directory_.path().c_str(), MNT_DETACH); }
  void fill() const {
    std::ofstream stream(directory_ / "filler");
    while (stream << std::string(1024, 'x') << std::flush) {
    }
  }
};

TEST_F(AgentJournalOnASmallDisk, RecordsWhatHasComeOfARequest) {
  Json large = answer("r1");
  large["result"] = std::string(20'000, 'x');
  {
    Journal journal(file());
    journal.add("r1", std::string(4000, 'x'), 7, kAnn);
    journal.start("r1");
    fill();
    journal.finish("r1", large);
    EXPECT_THROW(journal.add("r2", "{}", 7, kAnn), std::runtime_error);
    EXPECT_EQ(journal.find("r2"), nullptr);
  }
  Journal journal(file());
  ASSERT_THAT(journal.ids_in(State::kAnswered), ElementsAre("r1"));
  EXPECT_FALSE(Json::parse(journal.find("r1")->answer).contains("result"));
  EXPECT_THROW(journal.add("r2", "{}", 7, kAnn), std::runtime_error);
  std::filesystem::remove(directory_ / "filler");
  journal.add("r2", "{}", 7, kAnn);
  EXPECT_THAT(Journal(file()).ids_in(State::kWaiting), ElementsAre("r2"));
}

TEST_F(AgentJournalOnASmallDisk, IsOpenedThere) {
  fill();
  Journal journal(file());
  EXPECT_THROW(journal.add("r1", "{}", 7, kAnn), std::runtime_error);
  std::filesystem::remove(directory_ / "filler");
  journal.add("r1", "{}", 7, kAnn);
  EXPECT_THAT(Journal(file()).ids_in(State::kWaiting), ElementsAre("r1"));
}

}  // namespace
}  // namespace tarvio_test
