#include "faults/campaign.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace faults {

namespace {

constexpr double kReferenceSeconds = 60;
constexpr double kMoreSeconds = 2;  // than the run without a fault

struct Reference {
  Run run;
  std::string state;
};

struct Verdict {
  bool is_crash = false;
  bool is_hang = false;
  bool is_untrue = false;
  bool is_silent = false;
  bool is_leftover = false;
  std::string words;

  void find(bool& kind, const std::string& what) {
    kind = true;
    words += (words.empty() ? "" : "; ") + what;
  }
};

Reference make_reference(const Subject& subject) {
  subject.prepare();
  Reference reference = {run_program(subject.program, {}, kReferenceSeconds), {}};
  reference.state = subject.state();
  const Run& run = reference.run;
  const std::string wrong = subject.wrong ? subject.wrong(run) : "";
  if (run.status != subject.status || !run.left.empty() || !wrong.empty()) {
    throw std::runtime_error(subject.name + " fails without a fault: status " +
                             std::to_string(run.status) + ", " + wrong + run.output + run.errors);
  }
  return reference;
}

bool has_child_crashed(const std::string& errors) {
  return errors.find("terminate called") != std::string::npos ||
         errors.find("failed with status 139") != std::string::npos ||
         errors.find("failed with status 134") != std::string::npos;
}

// What was killed here could not clean up; and when a file cannot be removed, it stays.
bool may_leave(const Run& run) {
  return run.is_late || std::string(run.record.function) == "unlink";
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : ", ") + word;
  return line;
}

// More may follow: what else there is to report about a success.
bool says_the_same(const Subject& subject, const Run& run, const Run& reference) {
  const auto said = [&](const std::string& output) {
    return subject.said ? subject.said(output) : output;
  };
  const std::string expected = said(reference.output);
  return said(run.output).starts_with(expected.substr(0, expected.find_last_not_of('\n') + 1));
}

Verdict judge(const Subject& subject, const Run& run, const Reference& reference) {
  Verdict verdict;
  if (run.signal != 0) verdict.find(verdict.is_crash, "signal " + std::to_string(run.signal));
  if (has_child_crashed(run.errors)) verdict.find(verdict.is_crash, "a child crashed");
  if (run.is_late) verdict.find(verdict.is_hang, "still running after more than two seconds");
  const std::string wrong = subject.wrong ? subject.wrong(run) : "";
  if (!wrong.empty()) verdict.find(verdict.is_untrue, wrong);
  if (run.status == 0 && subject.keeps_word && !says_the_same(subject, run, reference.run)) {
    verdict.find(verdict.is_untrue, "exit 0 with other output");
  }
  if (run.status == 0 && subject.keeps_word && subject.state() != reference.state) {
    verdict.find(verdict.is_untrue, "exit 0 without the result");
  }
  if (run.status > 0 && run.errors.empty()) {
    verdict.find(verdict.is_silent, "exit " + std::to_string(run.status) + " without a reason");
  }
  if (subject.keeps_word && !run.left.empty() && !may_leave(run)) {
    verdict.find(verdict.is_leftover, "left: " + joined(run.left));
  }
  const int64_t lost = run.record.live - reference.run.record.live;
  if (subject.program.is_watched && run.status >= 0 && lost > 0) {
    verdict.find(verdict.is_leftover, std::to_string(lost) + " allocations lost");
  }
  return verdict;
}

struct Trial {
  Run run;
  Verdict verdict;
};

bool may_be_odd(const Verdict& verdict) {
  return !verdict.words.empty() && !verdict.is_crash && !verdict.is_hang;
}

Trial try_once(const Subject& subject, const Fault& fault, const Reference& reference) {
  subject.prepare();
  Trial trial = {run_program(subject.program, fault, reference.run.seconds + kMoreSeconds), {}};
  trial.verdict = judge(subject, trial.run, reference);
  if (subject.is_odd && may_be_odd(trial.verdict) && subject.is_odd(trial.run)) trial.verdict = {};
  return trial;
}

// What a busy machine may bring about; the rest counts at once.
bool may_pass(const Verdict& verdict) {
  return !verdict.is_crash && !verdict.is_untrue && !verdict.is_silent;
}

// A machine may be busy: what hangs or is left has to do so a second time, when the times are
// compared with those of a new run without a fault.
Trial try_fault(const Subject& subject, const Fault& fault, const Reference& reference) {
  Trial trial = try_once(subject, fault, reference);
  if (trial.verdict.words.empty() || !may_pass(trial.verdict)) return trial;
  Trial again = try_once(subject, fault, trial.run.is_late ? make_reference(subject) : reference);
  return again.run.has_happened() ? std::move(again) : std::move(trial);
}

void add(const Verdict& verdict, Findings& findings) {
  findings.crashes += verdict.is_crash;
  findings.hangs += verdict.is_hang;
  findings.untrue += verdict.is_untrue;
  findings.silent += verdict.is_silent;
  findings.leftovers += verdict.is_leftover;
}

std::string shortened(const std::string& text) {
  std::string line = text.substr(0, 300);
  std::replace(line.begin(), line.end(), '\n', '|');
  return line;
}

void report(const Subject& subject, const Fault& fault, const Run& run, const Verdict& verdict) {
  std::printf("%s %s: %s\n    failed: %s\n    status %d, output: %s, errors: %s\n",
              subject.name.c_str(), text_of(fault).c_str(), verdict.words.c_str(),
              place_of(run.record).c_str(), run.status, shortened(run.output).c_str(),
              shortened(run.errors).c_str());
  std::fflush(stdout);
}

}  // namespace

Findings try_faults(const Subject& subject, const Choice& choice) {
  const Reference reference = make_reference(subject);
  Findings findings = {.name = subject.name};
  const fault_record& record = reference.run.record;
  for (uint32_t i = 0; i < std::min<uint32_t>(record.process_count, FAULT_PROCESSES); ++i) {
    const fault_process& process = record.processes[i];
    if (process.is_forked != 0 && !subject.has_forks) continue;
    for (uint32_t kind = 0; kind < FAULT_KINDS; ++kind) {
      // A run with a fault may come to more of them than that without.
      for (uint32_t number = choice.first;; number += choice.every) {
        const Fault fault = {kind, number, process.path};
        const auto [run, verdict] = try_fault(subject, fault, reference);
        if (!run.has_happened() && number > process.counts[kind]) break;
        if (!run.has_happened()) continue;
        ++findings.faults;
        add(verdict, findings);
        if (!verdict.words.empty()) report(subject, fault, run, verdict);
      }
    }
  }
  return findings;
}

bool show_fault(const Subject& subject, const Fault& fault) {
  const Reference reference = make_reference(subject);
  const auto [run, verdict] = try_fault(subject, fault, reference);
  std::printf("failed:   %s\n", run.has_happened() ? place_of(run.record).c_str() : "nothing");
  std::printf("status:   %d, after %.3f s, without a fault %.3f s\n", run.status, run.seconds,
              reference.run.seconds);
  for (uint32_t i = 0; i < reference.run.record.process_count; ++i) {
    const fault_process& process = reference.run.record.processes[i];
    std::printf("process %-4s %u allocations, %u calls\n", process.path,
                process.counts[FAULT_ALLOC], process.counts[FAULT_CALL]);
  }
  if (subject.program.is_watched) {
    std::printf("memory:   %lld live allocations, without a fault %lld\n",
                static_cast<long long>(run.record.live),
                static_cast<long long>(reference.run.record.live));
  }
  std::printf("output:\n%serrors:\n%s", run.output.c_str(), run.errors.c_str());
  if (subject.state() != reference.state) {
    std::printf("state:\n%sinstead of:\n%s", subject.state().c_str(), reference.state.c_str());
  }
  std::printf("judgment: %s\n", verdict.words.empty() ? "good" : verdict.words.c_str());
  return verdict.words.empty();
}

}  // namespace faults
