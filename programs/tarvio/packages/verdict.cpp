#include "packages/verdict.h"

#include <cerrno>

#include "process/failure.h"

namespace client {

namespace {

constexpr char kNoFailure[] = "opkg reported no recognised error, but ";
constexpr char kDisputed[] = ", although opkg reported: ";
constexpr char kNotInstalled[] = "it is not installed";
constexpr char kAsBefore[] = "installed as before";

// What opkg says of its failure, and the state that it left behind.
[[noreturn]] void fail_with(const OpkgRun& run, const std::string& state) {
  std::string what = run.message;
  if (!state.empty()) {
    if (what.ends_with('.')) what.pop_back();
    what += ", and " + state;
  }
  throw Failure(run.code, what, run.status == kDone ? kFailed : run.status);
}

std::string words_of(const OpkgRun& run) {
  return run.message + " (" + std::to_string(run.code) + ")";
}

std::string state_of(const std::string& name, const Installed& now, const char* is_what) {
  return now.version ? name + " " + *now.version + " is " + is_what : name + " is not installed";
}

std::string success_line(const std::string& name, const Installed& after) {
  std::string line = "installed " + name + " " + *after.version;
  if (!after.is_listed) line += ", but it has no tqcontrol file, so tarvio does not manage it";
  return line;
}

}  // namespace

Verdict judge_installation(const Wanted& wanted, const Installed& before, const Installed& after,
                           const OpkgRun& run) {
  const bool is_new = before.version != after.version || is_reinstalled(before, after);
  const std::string state = state_of(wanted.name, after, is_new ? "installed" : kAsBefore);
  if (run.has_failed) fail_with(run, state);
  if (after.version == wanted.version && is_new) {
    if (run.code == 0) return {success_line(wanted.name, after), false};
    return {success_line(wanted.name, after) + kDisputed + words_of(run), true};
  }
  if (run.code != 0) fail_with(run, state);
  throw Failure(EIO, kNoFailure + state);
}

Verdict judge_removal(const std::string& name, const Installed& before, const Installed& after,
                      const OpkgRun& run) {
  const std::string state = state_of(name, after, "still installed");
  if (after.version && run.code == ENOPKG) {
    throw Failure(ENOPKG, "opkg removed nothing, and " + state);  // not that it is not installed
  }
  if (!before.version && (run.code == 0 || run.code == ENOPKG))
    throw Failure(ENOPKG, kNotInstalled);
  const bool is_removed = before.version && !after.version;
  if (run.has_failed || (!is_removed && run.code != 0)) fail_with(run, state);
  if (!is_removed) throw Failure(EIO, kNoFailure + state);
  if (run.code == 0) return {"removed " + name, false};
  return {"removed " + name + kDisputed + words_of(run), true};
}

void judge_files(const Installed& now, const OpkgRun& run) {
  if (run.code != 0) fail_with(run, now.version ? "" : kNotInstalled);
  // Newer releases write their complaints on standard error only.
  if (!run.lines.empty()) return;
  if (now.version) throw Failure(EIO, std::string(kNoFailure) + "it listed nothing");
  throw Failure(ENOPKG, kNotInstalled);
}

}  // namespace client
