#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/com/manager.h"
#include "support/com/one_reply.h"
#include "support/com/sockets.h"
#include "support/hooks/fail_alloc.h"
#include "support/hooks/got_hook.h"
#include "support/hooks/live_allocations.h"
#include "support/hooks/log_capture.h"
#include "support/unit_messages.h"
#include "tarvio/tarvio.h"

namespace tarvio_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kUnit[] = "lib/tq_lib_status";

struct Row {
  std::string name;
  int32_t id;
  std::string detail;
  bool operator==(const Row&) const = default;
};

void PrintTo(const Row& row, std::ostream* stream) {
  *stream << testing::PrintToString(row.name) << " " << row.id << " "
          << testing::PrintToString(row.detail);
}

class StatusList {
 public:
  StatusList() : list_(tq_list_create()) {}
  ~StatusList() { tq_status_list_free(list_); }
  StatusList(const StatusList&) = delete;
  StatusList& operator=(const StatusList&) = delete;

  tq_list_t* get() const { return list_; }
  std::vector<Row> rows() const {
    std::vector<Row> rows;
    for (const tq_list_node* node = list_->head; node != nullptr; node = node->next) {
      const auto* status = static_cast<const tq_status*>(node->element);
      rows.push_back({status->name, status->id, status->detail});
    }
    return rows;
  }

 private:
  tq_list_t* list_;
};

TEST(ClientStatus, AsksForAllStatuses) {
  OneReply manager("");
  const StatusList list;
  EXPECT_EQ(tq_lib_list_all_status(list.get()), 0);
  EXPECT_EQ(manager.request(), "status_all\n");
  EXPECT_THAT(list.rows(), IsEmpty());
}

TEST(ClientStatus, AsksForTheApplicationsStatuses) {
  OneReply manager("clock\n0\nstarted app\n");
  const StatusList list;
  EXPECT_EQ(tq_lib_list_app_status(list.get()), 0);
  EXPECT_EQ(manager.request(), "status_app\n");
  EXPECT_THAT(list.rows(), ElementsAre(Row{"clock\n", 0, "started app\n"}));
}

TEST(ClientStatus, KeepsLineEndsAndPutsTheStateIntoTheId) {
  const OneReply manager("clock\n0\nstarted app\nweb\n2\nstart app failed.\n");
  const StatusList list;
  EXPECT_EQ(tq_lib_list_all_status(list.get()), 0);
  EXPECT_THAT(list.rows(), ElementsAre(Row{"clock\n", 0, "started app\n"},
                                       Row{"web\n", 2, "start app failed.\n"}));
}

TEST(ClientStatus, SetsNoOtherField) {
  const OneReply manager("clock\n2\nfailed\n");
  const StatusList list;
  tq_lib_list_all_status(list.get());
  ASSERT_EQ(tq_list_size(list.get()), 1);
  const auto* status = static_cast<const tq_status*>(tq_list_first(list.get()));
  EXPECT_EQ(status->type, 0);
  EXPECT_EQ(status->state, 0);
  EXPECT_EQ(status->next, nullptr);
}

TEST(ClientStatus, AppendsToWhatTheListHolds) {
  const StatusList list;
  {
    const OneReply manager("first\n0\n\n");
    tq_lib_list_all_status(list.get());
  }
  const OneReply manager("second\n1\n\n");
  tq_lib_list_all_status(list.get());
  EXPECT_THAT(list.rows(), ElementsAre(Row{"first\n", 0, "\n"}, Row{"second\n", 1, "\n"}));
}

TEST(ClientStatus, ReadsWhateverTheReplyHolds) {
  const std::string x(300, 'x');
  using Rows = std::vector<Row>;
  const std::pair<std::string, Rows> replies[] = {
      {"\n\n\n", {{"\n", 0, "\n"}}},
      {"a\n7 and more\nd\n", {{"a\n", 7, "d\n"}}},
      {"a\nnone\nd\n", {{"a\n", 0, "d\n"}}},
      {"a\n-3\nd\n", {{"a\n", -3, "d\n"}}},
      {"a\n99999999999999999999\nd\n", {{"a\n", INT32_MAX, "d\n"}}},
      {"a\n-99999999999999999999\nd\n", {{"a\n", INT32_MIN, "d\n"}}},
      {"a\n1\nlast line without an end", {{"a\n", 1, "last line without an end"}}},
      {"a\r1\rd\r", {{"a\r", 1, "d\r"}}},
      {"a\r\nd\n", {{"a\r", 0, "d\n"}}},
      {x + "\n5\n", {{x.substr(0, 254), 0, "5\n"}}},
  };
  for (const auto& [reply, expected] : replies) {
    const OneReply manager(reply);
    const StatusList list;
    EXPECT_EQ(tq_lib_list_all_status(list.get()), 0);
    EXPECT_EQ(list.rows(), expected) << testing::PrintToString(reply);
  }
}

TEST(ClientStatus, ReadsALongList) {
  std::string reply;
  for (int i = 0; i < 5000; ++i) reply += "name-" + std::to_string(i) + "\n1\ndetail\n";
  const OneReply manager(reply);
  const StatusList list;
  EXPECT_EQ(tq_lib_list_all_status(list.get()), 0);
  ASSERT_THAT(list.rows(), SizeIs(5000));
  EXPECT_EQ(list.rows().back(), (Row{"name-4999\n", 1, "detail\n"}));
}

TEST(ClientStatus, LogsWhatItDoes) {
  const OneReply manager("clock\n0\n\nweb\n0\n\n");
  const LogCapture log(TQ_LOG_DEBUG);
  int connected = -1;
  Hook hook("connect", [&](int fd, const sockaddr* address, socklen_t size) {
    connected = fd;
    return connect(fd, address, size);
  });
  const StatusList list;
  tq_lib_list_all_status(list.get());
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: fd is " + std::to_string(connected),
                                                     "debug: adding status to the list.",
                                                     "debug: adding status to the list."));
}

TEST(ClientStatus, KeepsWhatCameBeforeACutAfterTheName) {
  const OneReply manager("clock\n0\nstarted app\nweb\n");
  const LogCapture log;
  const StatusList list;
  EXPECT_EQ(tq_lib_list_all_status(list.get()), 0);
  EXPECT_THAT(list.rows(), ElementsAre(Row{"clock\n", 0, "started app\n"}));
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("warning: Can't read status."));
}

TEST(ClientStatus, KeepsWhatCameBeforeACutAfterTheState) {
  const OneReply manager("clock\n0\nstarted app\nweb\n2\n");
  const LogCapture log;
  const StatusList list;
  EXPECT_EQ(tq_lib_list_app_status(list.get()), 0);
  EXPECT_THAT(list.rows(), ElementsAre(Row{"clock\n", 0, "started app\n"}));
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("warning: Can't read status detail."));
}

TEST(ClientStatus, IsEmptyWithoutAManager) {
  const LogCapture log;
  const StatusList list;
  EXPECT_EQ(tq_lib_list_all_status(list.get()), 0);
  EXPECT_EQ(tq_lib_list_app_status(list.get()), 0);
  EXPECT_THAT(list.rows(), IsEmpty());
  EXPECT_THAT(unit_messages(log, "util/tq_unix_sock"),
              ElementsAre("warning: Connect unix socket failed =2 ",
                          "warning: Connect unix socket failed =2 "));
  EXPECT_THAT(unit_messages(log, kUnit), IsEmpty());
}

TEST(ClientStatus, GivesTheValueOfASocketThatCannotBeMade) {
  const Hook hook(
      "socket", +[](int, int, int) {
        errno = EMFILE;
        return -4;
      });
  const LogCapture log(TQ_LOG_DEBUG);
  const StatusList list;
  EXPECT_EQ(tq_lib_list_all_status(list.get()), -4);
  EXPECT_EQ(tq_lib_list_app_status(list.get()), -4);
  EXPECT_THAT(unit_messages(log, kUnit), ElementsAre("debug: fd is -4", "debug: fd is -4"));
}

TEST(ClientStatus, NeedsAList) {
  const Socket listener = listen_on(TQ_COM_SOCKET_PATH);
  fcntl(listener.fd(), F_SETFL, O_NONBLOCK);
  EXPECT_EQ(tq_lib_list_all_status(nullptr), EINVAL);
  EXPECT_EQ(tq_lib_list_app_status(nullptr), EINVAL);
  EXPECT_EQ(accept(listener.fd(), nullptr, nullptr), -1);  // no request was made
}

TEST(ClientStatus, ClosesItsSocket) {
  const long before = count_descriptors();
  const StatusList list;
  tq_lib_list_all_status(list.get());
  tq_lib_list_app_status(list.get());
  EXPECT_EQ(count_descriptors(), before);
}

TEST(ClientStatus, AllocatesOnlyWhatTheListHolds) {
  const OneReply manager("clock\n0\n\nweb\n0\n\ncut\n0\n");
  const StatusList list;
  const LiveAllocations live;
  tq_lib_list_all_status(list.get());
  EXPECT_EQ(live.count(), 2 * 4);  // node, record, name and detail
}

TEST(ClientStatus, LosesNothingWhenMemoryRunsOut) {
  const ManagerProcess manager({}, [] {
    tq_set_application_status_normal("clock", "started app");
    tq_set_application_status_error("web", "start app failed.");
  });
  int n = 0;
  for (bool failed = true; failed;) {
    const StatusList list;
    const FailAlloc fail(++n);
    const int result = tq_lib_list_all_status(list.get());
    failed = fail.happened();
    EXPECT_EQ(result, n == 1 ? -1 : 0);  // no request can be made of nothing
    EXPECT_EQ(list.rows().size(), failed && n < 6 ? 0U : failed ? 1U : 2U);
  }
  EXPECT_EQ(n, 1 + 2 * 4 + 1);  // the request, and for each record name, detail, record, node
}

}  // namespace
}  // namespace tarvio_test
