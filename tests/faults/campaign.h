// What is under test, and how it is judged.
#ifndef TARVIO_TESTS_FAULTS_CAMPAIGN_H
#define TARVIO_TESTS_FAULTS_CAMPAIGN_H

#include <functional>
#include <string>
#include <vector>

#include "faults/run.h"

namespace faults {

struct Subject {
  std::string name;
  Program program;
  // Once, before all runs.
  std::function<void()> set_up;
  // Puts the device into the same state before each run.
  std::function<void()> prepare;
  // Its exit status without a fault.
  int status = 0;
  // The state of the device after a run, compared with that after the run without a fault.
  std::function<std::string()> state;
  // The part of the output that is always the same; all of it unless it is given.
  std::function<std::string(const std::string&)> said = {};
  // Whether its output and the state of the device must be right when it ends with 0, and nothing
  // may be left.
  bool keeps_word = true;
  // Whether what it forks, before it executes something else, is tried too.
  bool has_forks = true;
  // What is wrong beside what holds for every program; empty when nothing is.
  std::function<std::string(const Run&)> wrong = {};
  // Whether what is wrong after this fault follows from an oddity of the library: anything but a
  // crash and a hang is let pass then.
  std::function<bool(const Run&)> is_odd = {};
};

struct Findings {
  std::string name;
  int faults = 0;
  int crashes = 0;
  int hangs = 0;
  int untrue = 0;     // exit status 0, and the result is not there
  int silent = 0;     // another one, and no reason
  int leftovers = 0;  // files, processes, or memory

  int sum() const { return crashes + hangs + untrue + silent + leftovers; }
};

struct Choice {
  uint32_t every = 1;  // each k-th fault
  uint32_t first = 1;  // beginning with this one
};

Findings try_faults(const Subject& subject, const Choice& choice);
// One, with all that came of it on standard output. Whether that is as it should be.
bool show_fault(const Subject& subject, const Fault& fault);

std::vector<Subject> package_subjects();
std::vector<Subject> flash_subjects();
std::vector<Subject> manager_subjects();
std::vector<Subject> day_subjects();
std::vector<Subject> library_subjects();

}  // namespace faults

#endif
