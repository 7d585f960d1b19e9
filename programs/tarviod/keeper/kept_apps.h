// The applications of the keeper, from each start to the end of the last process.
#ifndef TARVIOD_KEPT_APPS_H
#define TARVIOD_KEPT_APPS_H

#include <stdint.h>
#include <time.h>

#include <array>

#include "base/deadline.h"
#include "base/owners.h"
#include "keeper/app_output.h"
#include "keeper/launch.h"
#include "keeper/process_table.h"
#include "keeper/protocol.h"
#include "keeper/record_list.h"
#include "keeper/stop_copy.h"

namespace tarviod {

// From one start of an application to the next.
struct Run {
  enum class Step { kAsk, kTerminate, kKill };  // of a stop

  RunSettings settings;
  Launch start;
  Launch stop;
  StopCopy stop_copy;
  KeptState state = KeptState::kStopped;
  time_t since = 0;
  int other_status = 0;       // of the process that has ended last, the start file's aside
  runtime::ProcessId oldest;  // once the start file's has ended
  Step step = Step::kAsk;
  tarvio::Deadline next_step = tarvio::Deadline::never();
};

struct App {
  App* next = nullptr;
  tarvio::CString name;
  Run run;

  [[nodiscard]] bool was_started() const { return run.start.id().pid != 0; }
  [[nodiscard]] bool is_live() const {
    return run.state == KeptState::kRunning || run.state == KeptState::kStopping;
  }
  // Of its sessions; with process id 0 where there is none.
  [[nodiscard]] std::array<runtime::ProcessId, 2> leaders() const {
    return {run.start.id(), run.stop.id()};
  }
  [[nodiscard]] KeptApp facts() const;
};

class KeptApps {
 public:
  // Writes the ledger, so that what runs without applications is known as well.
  explicit KeptApps(Output& output);

  // 0 or the error: EALREADY when it runs, EBUSY when it is being stopped.
  int start(const char* name, const AppSetup& setup, const Streams& streams);
  // Begins to stop an application. Null when it does not run.
  const App* stop(const char* name, const Streams& streams);
  void stop_all();

  // After SIGCHLD: takes down who has ended.
  void reap();
  // Does what is due by the time that `due` says.
  void go_on();
  [[nodiscard]] tarvio::Deadline due() const;

  [[nodiscard]] const RecordList<App>& all() const { return apps_; }
  [[nodiscard]] int started_count() const;
  [[nodiscard]] bool any_is_live() const;
  // Whether something has changed since the last call.
  bool take_change() { return std::exchange(has_changed_, false); }

 private:
  App* find(const char* name) const;
  App* find_or_append(const char* name);
  bool launch(const App& app, const char* file, int copy_fd, const Streams& streams, Launch& into);
  bool record() const;
  void enter(App& app, KeptState state);
  void begin_stop(App& app, const Streams& streams);
  void take_step(App& app);
  void settle();
  void look_again(bool is_undecided);

  Output& output_;
  RecordList<App> apps_;
  tarvio::Deadline settle_due_ = tarvio::Deadline::never();
  tarvio::Deadline doubt_end_ = tarvio::Deadline::never();
  bool has_changed_ = false;
};

}  // namespace tarviod

#endif
