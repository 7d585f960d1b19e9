// What the agent remembers of requests.
#include "journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <csignal>
#include <filesystem>
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

class AgentJournal : public testing::Test {
 protected:
  static Json answer(const std::string& id) {
    return {{"id", id}, {"state", "done"}, {"message", "Success"}, {"result", {1, 2, 3}}};
  }
  static void complete(Journal& journal, const std::string& id) {
    journal.begin(id, "{}", {.topic = "t", .correlation = "c"});
    journal.finish(id, answer(id));
    journal.deliver(id);
  }
  std::string file() const { return directory_ / "journal"; }

  const TempDir directory_;
};

TEST_F(AgentJournal, IsEmptyAtFirst) {
  const Journal journal(file());
  EXPECT_EQ(journal.find("r1"), nullptr);
  EXPECT_THAT(journal.ids_in(State::kRunning), IsEmpty());
}

TEST_F(AgentJournal, RemembersWhatWasBegun) {
  Journal(file()).begin("r1", "the request", {.topic = "topic", .correlation = {"\0\xff", 2}});
  const Journal journal(file());
  ASSERT_THAT(journal.ids_in(State::kRunning), ElementsAre("r1"));
  const JournalEntry& entry = *journal.find("r1");
  EXPECT_EQ(entry.payload, "the request");
  EXPECT_EQ(entry.address.topic, "topic");
  EXPECT_EQ(entry.address.correlation, std::string("\0\xff", 2));
}

TEST_F(AgentJournal, KeepsAnAnswerWholeUntilItIsDelivered) {
  {
    Journal journal(file());
    journal.begin("r1", "{}", {});
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
  for (const char* id : {"b", "a", "c"}) journal.begin(id, "{}", {});
  journal.finish("a", answer("a"));
  EXPECT_THAT(journal.ids_in(State::kRunning), ElementsAre("b", "c"));
}

TEST_F(AgentJournal, KnowsTheLast1000) {
  {
    Journal journal(file());
    journal.begin("open", "{}", {});
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

// As a power cut leaves it.
TEST_F(AgentJournal, DoesWithoutALastLineThatIsCut) {
  {
    Journal journal(file());
    journal.begin("r1", "{}", {});
    journal.begin("r2", "{}", {});
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
  write_file(file(), "{\"finished\":\"ghost\",\"answer\":\"{}\"}\n[]\nnonsense\n{\"x\":1}\n");
  EXPECT_THAT(Journal(file()).ids_in(State::kAnswered), IsEmpty());
}

TEST_F(AgentJournal, ForgetsNothingOnAFullDisk) {
  Journal journal(file());
  journal.begin("r1", "{}", {});
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit full = before;
  full.rlim_cur = std::filesystem::file_size(file()) + 10;
  setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_THROW(journal.begin("r2", "{}", {}), std::runtime_error);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(journal.find("r2"), nullptr);
  journal.begin("r3", "{}", {});
  EXPECT_THAT(Journal(file()).ids_in(State::kRunning), ElementsAre("r1", "r3"));
}

}  // namespace
}  // namespace tarvio_test
