#include "packages/verdict.h"

#include <cerrno>

#include "process/failure.h"

namespace client {

namespace {

constexpr char kNoFailure[] = "opkg reported no recognised error, but ";
constexpr char kDisputed[] = ", although opkg reported: ";
constexpr char kNotInstalled[] = "it is not installed";

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
  return now.version ? name + " " + *now.version + " is " + is_what : "";
}

std::string success_line(const std::string& name, const Installed& after) {
  std::string line = "installed " + name + " " + *after.version;
  if (!after.is_listed) {
    line += ", but it has no tqcontrol file, so tarvio does not manage it";
  } else if (after.is_application) {
    line += "; restart tarviod to make it available";
  }
  return line;
}

}  // namespace

Verdict judge_installation(const Wanted& wanted, const Installed& before, const Installed& after,
                           const OpkgRun& run) {
  const auto& [name, version, is_forced] = wanted;
  const std::string as_before = state_of(name, after, "installed as before");
  if (after.version != version) {
    if (run.code != 0) fail_with(run, as_before);
    const std::string other = after.version ? ": " + name + " " + *after.version + " is" : "";
    throw Failure(EIO, kNoFailure + name + " " + version + " is not installed" + other);
  }
  const bool is_new = before.version != version || is_reinstalled(before, after);
  if (is_new && run.code == 0) return {success_line(name, after), false};
  if (is_new) return {success_line(name, after) + kDisputed + words_of(run), true};
  if (run.code != 0) fail_with(run, as_before);
  if (is_forced) throw Failure(EIO, kNoFailure + as_before);
  return {name + " " + version + " is already installed; nothing changed", true};
}

Verdict judge_removal(const std::string& name, const Installed& before, const Installed& after,
                      const OpkgRun& run) {
  const std::string still = state_of(name, after, "still installed");
  if (after.version && run.code == ENOPKG) {
    throw Failure(ENOPKG, "opkg removed nothing, and " + still);  // not that it is not installed
  }
  if (after.version && run.code != 0) fail_with(run, still);
  if (after.version) throw Failure(EIO, kNoFailure + still);
  if (!before.version) {
    if (run.code != 0 && run.code != ENOPKG) fail_with(run, kNotInstalled);
    throw Failure(ENOPKG, kNotInstalled);
  }
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
