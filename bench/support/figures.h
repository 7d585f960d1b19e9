// A figure: the time that the library takes for something, compared with the least that it can
// take.
#ifndef TARVIO_BENCH_SUPPORT_FIGURES_H
#define TARVIO_BENCH_SUPPORT_FIGURES_H

#include <string>
#include <vector>

namespace tarvio_bench {

// Two benchmarks, by their names, and how large the median of the first may be.
struct Figure {
  std::string title;
  std::string ours;
  std::string floor;
  double times = 1;         // as large as the floor
  double seconds_more = 0;  // on top of that
};

// What was measured beside its floor or peer, and the most that it may be; in seconds.
struct Comparison {
  double ours = 0;
  double floor = 0;
  double limit = 0;
};

// Prints one row of the table that bench/run makes: title, limit, what was measured, and whether it
// holds. Returns that.
bool report(const std::string& title, const std::string& limit, const std::string& measured,
            bool holds, const Comparison& comparison = {});

// The same for a figure that cannot be measured here, and why.
void report_skipped(const std::string& title, const std::string& limit, const std::string& why);

// Runs all benchmarks of the program, their repetitions in random order, so that other load on the
// machine affects all of them alike, and reports the figures. Returns the program's exit status:
// 0 when all figures hold, 1 when one does not, 2 for a wrong command line.
int run_figures(int argc, char** argv, const std::vector<Figure>& figures);

}  // namespace tarvio_bench

#endif
