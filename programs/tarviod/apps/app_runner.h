// The applications as the manager runs them: the start and stop operations that ask the keeper, and
// what follows when an application ends by itself.
#ifndef TARVIOD_APP_RUNNER_H
#define TARVIOD_APP_RUNNER_H

#include <errno.h>

#include "app_runs.h"
#include "base/deadline.h"
#include "keeper/keeper_link.h"
#include "runtime/state_file.h"
#include "tarvio/app.h"

namespace tarviod {

// One object, used by one thread at a time: the com server's, once that runs.
class AppRunner {
 public:
  AppRunner() = default;
  AppRunner(const AppRunner&) = delete;
  AppRunner& operator=(const AppRunner&) = delete;

  // Connects to the keeper that runs or starts one, to be called before the manager opens what no
  // application may inherit. False, with the reason reported, when there is none.
  //
  // output  where applications print to, as in AppSetup.
  bool open(const char* output);

  // Puts the operations that ask the keeper in the place of the library's own, and goes on with
  // what a manager before this one has left: applications that run, statuses, restarts that were to
  // come. False, with the reason reported, when that failed.
  //
  // previous  what that manager has left, or null.
  bool take_over(const runtime::StateFile* previous);

  // Starts the applications that are enabled once, each after the one that it names; what a manager
  // before this one has started stays as it is. Returns the last error code.
  int start_at_boot();

  // Becomes readable when `follow` has something to do.
  [[nodiscard]] int fd() const { return changes_.fd(); }
  // When it is to be called without that.
  [[nodiscard]] tarvio::Deadline next_due() const;
  // Also after each request: takes note of applications that have ended, starts those again that
  // are due, and sees to a keeper that has died.
  void follow();

  // Why an application does not run after its start, an error code: EBUSY when a stop
  // that an earlier manager began has not ended or has ended just now, or what kept its start file
  // from running; else 0.
  [[nodiscard]] int reason_not_run(const char* application) const;

  // All applications are going to be stopped: from now on, none is started again after a keeper
  // that has died.
  void begin_end() { is_ending_ = true; }
  // Ends the keeper, and with it whatever still runs.
  void end_keeper();

  [[nodiscard]] const AppRunsTable& runs() const { return runs_; }

 private:
  // Error codes of a start or a stop. An unknown application has EINVAL for itself.
  static constexpr int kKeeperGone = ECONNRESET;
  static constexpr char kStartedAgain[] = "started again";

  static int start_operation(tq_app_info* app);
  static int stop_operation(tq_app_info* app);

  KeeperFound connect();
  // A failure once, until it is another one.
  void report(KeeperFound found);
  int ask(const KeeperRequest& request, int within_ms);
  // Starts a keeper in the place of one that has died, and what that one ran. False when it has to
  // be tried again later.
  bool replace_keeper();
  void take_operations();
  int start(tq_app_info& app, AppRuns& runs);
  int start_with_keeper(const tq_app_info& app, AppRuns& runs);
  int stop(tq_app_info& app, AppRuns& runs);
  int stop_with_keeper(const AppRuns& runs);

  void report_failures();
  bool hear_keeper();
  bool take_notes();
  void take_note(const KeptApp& kept);
  void settle(tq_app_info& app, AppRuns& runs, KeptState state);
  void settle_end(tq_app_info& app, AppRuns& runs);
  bool start_due_ones();
  bool start_again(tq_app_info& app, AppRuns& runs, const char* detail);

  void restore(const runtime::StateFile& previous);
  void stop_removed_ones();
  bool start_lost_ones();

  KeeperLink requests_;
  KeeperLink changes_;
  AppRunsTable runs_;
  const char* output_ = nullptr;
  tarvio::Deadline keeper_due_ = tarvio::Deadline::never();  // another try to start one
  int keeper_error_ = 0;
  bool is_ending_ = false;
  bool has_ended_ = false;
};

}  // namespace tarviod

#endif
