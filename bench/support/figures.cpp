#include "support/figures.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>

#include "support/say.h"

namespace tarvio_bench {
namespace {

// Remembers the medians beside the usual output.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  MedianReporter() : ConsoleReporter(OO_None) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.aggregate_name != "median" || run.error_occurred) continue;
      // Processor time does not count other load, but a request also waits.
      const bool elapsed = !run.run_name.time_type.empty();
      const double time = elapsed ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
      medians_[run.run_name.function_name] = time / benchmark::GetTimeUnitMultiplier(run.time_unit);
    }
  }

  // Seconds; 0 for a benchmark that did not run to its end.
  double median(const std::string& name) const {
    const auto at = medians_.find(name);
    return at == medians_.end() ? 0 : at->second;
  }

 private:
  std::map<std::string, double> medians_;
};

std::string time_text(double seconds) {
  if (seconds < 1e-6) return text_of("%.1f ns", seconds * 1e9);
  if (seconds < 1e-3) return text_of("%.1f us", seconds * 1e6);
  return text_of("%.2f ms", seconds * 1e3);
}

void print_row(const std::string& title, const std::string& limit, const std::string& measured,
               const char* verdict, const Comparison& comparison) {
  (void)std::printf("figure\t%s\t%s\t%s\t%s", title.c_str(), limit.c_str(), measured.c_str(),
                    verdict);
  if (comparison.floor > 0) {
    (void)std::printf("\t%.4g\t%.4g\t%.4g", comparison.ours, comparison.floor, comparison.limit);
  }
  (void)std::printf("\n");
  (void)std::fflush(stdout);
}

bool report_figure(const Figure& figure, const MedianReporter& reporter) {
  const double ours = reporter.median(figure.ours);
  const double floor = reporter.median(figure.floor);
  const bool is_difference = figure.seconds_more > 0;
  const std::string limit = is_difference ? time_text(figure.seconds_more) + " more"
                                          : text_of("%.1f times", figure.times);
  if (ours <= 0 || floor <= 0) return report(figure.title, limit, "not measured", false);
  const std::string measured =
      is_difference ? time_text(ours - floor) + " more" : text_of("%.2f times", ours / floor);
  const double most = floor * figure.times + figure.seconds_more;
  return report(figure.title, limit,
                measured + " (" + time_text(ours) + " / " + time_text(floor) + ")", ours <= most,
                {.ours = ours, .floor = floor, .limit = most});
}

}  // namespace

bool report(const std::string& title, const std::string& limit, const std::string& measured,
            bool holds, const Comparison& comparison) {
  print_row(title, limit, measured, holds ? "pass" : "FAIL", comparison);
  return holds;
}

void report_skipped(const std::string& title, const std::string& limit, const std::string& why) {
  print_row(title, limit, why, "skipped", {});
}

int run_figures(int argc, char** argv, const std::vector<Figure>& figures) {
  // The command line comes last, so that it can say otherwise.
  std::vector<std::string> words = {
      argv[0], "--benchmark_repetitions=21", "--benchmark_min_time=0.1",
      "--benchmark_enable_random_interleaving=true", "--benchmark_display_aggregates_only=true"};
  words.insert(words.end(), argv + 1, argv + argc);
  std::vector<char*> arguments;
  arguments.reserve(words.size());
  for (std::string& word : words) arguments.push_back(word.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;

  MedianReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  bool all_hold = true;
  for (const Figure& figure : figures) all_hold = report_figure(figure, reporter) && all_hold;
  return all_hold ? 0 : 1;
}

}  // namespace tarvio_bench
