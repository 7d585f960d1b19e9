// Many boards, in processes of a few hundred.
#ifndef TARVIO_BENCH_FLEET_CROWD_H
#define TARVIO_BENCH_FLEET_CROWD_H

#include <sys/types.h>

#include <functional>
#include <span>
#include <vector>

#include "base/owners.h"
#include "fleet/simulated_board.h"

namespace tarvio_bench {

class Crowd {
 public:
  // They come one after another, as boards are switched on, within as long as they take to come
  // back after a loss.
  //
  // broker_of  the broker with what a board, by its number, shows to it.
  Crowd(int boards, const std::function<fleet::Broker(int number)>& broker_of);
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd();  // ends them all

  [[nodiscard]] std::span<const BoardRecord> records() const { return records_; }

  // Waits until the broker has all facts of all boards, by connections made since that time. Ends
  // the program when that takes minutes.
  void wait_until_settled(int64_t since_ns = 0) const;

  // An application of a board starts once more.
  void change(int number) const;
  // Brings the traffic in the records up to date.
  void count_traffic() const;

  // Processor time of all their processes.
  [[nodiscard]] double cpu_seconds() const;

 private:
  struct Process {
    pid_t pid;
    tarvio::Fd commands;
  };

  void order(int number, int command) const;

  std::span<BoardRecord> records_;
  std::vector<Process> processes_;
};

// Processor time of a process. Ends the program when there is no such process.
double cpu_seconds_of(pid_t pid);

}  // namespace tarvio_bench

#endif
