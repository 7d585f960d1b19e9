// The work on one request: what comes is fetched, tarvio does the work, what goes is sent.
#ifndef TARVIO_AGENT_JOB_H
#define TARVIO_AGENT_JOB_H

#include <poll.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent_settings.h"
#include "board_request.h"
#include "fleet/child_process.h"

namespace agent {

// Of an answer.
inline constexpr char kDone[] = "done";
inline constexpr char kFailed[] = "failed";
inline constexpr char kRefused[] = "refused";
inline constexpr char kExpired[] = "expired";
inline constexpr char kInterrupted[] = "interrupted";

// What every answer has.
Json answer_of(const std::string& id, const char* state, const std::string& message);

// What is said besides, after other notes.
void add_note(Json& answer, const std::string& words);

// The files that a request brings, or takes away, which a cut may have left.
void remove_files(const std::string& directory, const std::string& id);

class Job {
 public:
  using Show = std::function<void(const Json& progress)>;

  // settings  with a directory for the files that come and go.
  // note      what the answer says besides, of a request that is run again; empty for another one.
  Job(Request request, const Settings& settings, std::string note, Show show);

  [[nodiscard]] const Request& request() const { return request_; }

  void list(pollfd* files) const { child_->list(files); }
  // Goes on; returns the answer, once.
  std::optional<Json> step();

 private:
  // One program after another; the first one that fails is the last.
  struct Step {
    const char* name;
    std::vector<std::string> words;
    bool may_fail = false;
    bool is_result = false;  // what it writes is the result of the job
  };

  void plan();
  void start_next();
  [[nodiscard]] bool is_done_already(const fleet::ChildEnd& ended) const;
  void show(std::string_view line) const;
  [[nodiscard]] std::string message_of(const Step& step, const fleet::ChildEnd& ended) const;
  [[nodiscard]] Json end(int status, const std::string& message);

  const Request request_;
  const Settings& settings_;
  const std::string note_;
  const Show show_;
  std::vector<Step> steps_;
  size_t next_ = 0;
  std::unique_ptr<fleet::ChildProcess> child_;
  Json result_;
  bool is_cut_ = false;  // the result
};

}  // namespace agent

#endif
