// faults-campaign [--every K] [--first N] [SUBJECT]...
//     tries the faults of these subjects, or of all: every K-th, beginning with the N-th
// faults-campaign SUBJECT FAULT
//     tries one fault, such as "call:17", and shows all of it
// faults-campaign --subjects
//     lists the subjects
//
// Runs in the sandbox. Exit status 0 when nothing was found.
#include <sys/prctl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "faults/campaign.h"
#include "faults/device.h"
#include "support/files.h"

namespace faults {

namespace {

namespace fs = std::filesystem;

std::vector<Subject> all_subjects() {
  std::vector<Subject> subjects;
  for (const auto& some : {package_subjects(), flash_subjects(), manager_subjects(), day_subjects(),
                           library_subjects()}) {
    subjects.insert(subjects.end(), some.begin(), some.end());
  }
  return subjects;
}

// df says the same whatever this machine has.
void make_tools() {
  fs::create_directories("/run/faults/bin");
  tarvio_test::write_program("/run/faults/bin/df",
                             "#!/bin/sh\n"
                             "echo 'Filesystem 1024-blocks Used Available Capacity Mounted on'\n"
                             "echo '/dev/mtdblock4 65536 16384 49152 25% /'\n");
  const std::string path = getenv("PATH");
  setenv("PATH", ("/run/faults/bin:" TARVIO_SANDBOX_TOOLS ":" + path + ":/usr/sbin").c_str(), 1);
}

bool try_all(const std::vector<Subject>& subjects, const Choice& choice) {
  bool is_clean = true;
  for (const Subject& subject : subjects) {
    subject.set_up();
    const Findings findings = try_faults(subject, choice);
    is_clean = is_clean && findings.sum() == 0;
    std::printf("total %-18s %7d %7d %7d %7d %7d %9d\n", findings.name.c_str(), findings.faults,
                findings.crashes, findings.hangs, findings.untrue, findings.silent,
                findings.leftovers);
  }
  return is_clean;
}

int run(std::vector<std::string> words) {
  Choice choice;
  while (words.size() > 1 && words[0].starts_with("--")) {
    const auto number = static_cast<uint32_t>(std::stoul(words[1]));
    (words[0] == "--every" ? choice.every : choice.first) = number;
    words.erase(words.begin(), words.begin() + 2);
  }
  std::vector<Subject> subjects = all_subjects();
  if (words == std::vector<std::string>{"--subjects"}) {
    for (const Subject& subject : subjects) std::puts(subject.name.c_str());
    return EXIT_SUCCESS;
  }
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  fs::create_directories("/run/faults");
  make_tools();
  const auto fault = words.size() == 2 ? parse_fault(words[1]) : std::nullopt;
  if (fault) words.pop_back();
  if (!words.empty()) {
    std::erase_if(subjects, [&](const Subject& subject) {
      return std::find(words.begin(), words.end(), subject.name) == words.end();
    });
    if (subjects.size() != words.size()) throw std::runtime_error("no such subject");
  }
  if (!fault) return try_all(subjects, choice) ? EXIT_SUCCESS : EXIT_FAILURE;
  subjects.front().set_up();
  return show_fault(subjects.front(), *fault) ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

}  // namespace faults

int main(int argc, char** argv) {
  try {
    return faults::run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "faults-campaign: %s\n", error.what());
    return 2;
  }
}
