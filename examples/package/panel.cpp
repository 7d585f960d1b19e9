// Prints the statuses of the applications, each again when it changes, until a signal ends it.
#include <chrono>
#include <cstdio>
#include <map>
#include <string>
#include <system_error>
#include <thread>

#include <tarvio/tarvio.hpp>

int main() {
  std::map<std::string, std::string> shown;
  std::string reported;
  while (true) {
    std::error_code error;
    std::map<std::string, std::string> statuses;
    for (const tarvio::Status& status : tarvio::Manager().application_statuses(error)) {
      statuses[status.name] = status.detail;
    }
    for (const auto& [name, detail] : statuses) {
      if (shown[name] != detail) std::printf("%s: %s\n", name.c_str(), detail.c_str());
    }
    shown = statuses;
    const std::string problem = error ? error.message() : "";
    if (problem != reported)
      std::printf("manager: %s\n", error ? problem.c_str() : "answers again");
    reported = problem;
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
}
