// The broker, with the settings that are packaged, and what it and its clients show to one another.
#ifndef TARVIO_BENCH_FLEET_BROKER_SERVER_H
#define TARVIO_BENCH_FLEET_BROKER_SERVER_H

#include <sys/types.h>

#include <filesystem>

#include "fleet/broker.h"

namespace tarvio_bench {

inline constexpr char kOperator[] = "operator";

// The authority, and the certificates of the broker, of the operator and of that many boards, made
// in a directory.
class Certificates {
 public:
  Certificates(std::filesystem::path directory, int boards);

  [[nodiscard]] const std::filesystem::path& directory() const { return directory_; }
  [[nodiscard]] fleet::Broker broker_of_board(int number) const;
  [[nodiscard]] fleet::Broker broker_of_operator() const;

 private:
  [[nodiscard]] fleet::Broker broker(int port, const std::string& name) const;

  const std::filesystem::path directory_;
};

class BrokerServer {
 public:
  // Starts it, with a directory for its files.
  BrokerServer(std::filesystem::path directory, const Certificates& certificates);
  BrokerServer(const BrokerServer&) = delete;
  BrokerServer& operator=(const BrokerServer&) = delete;
  ~BrokerServer();

  [[nodiscard]] pid_t pid() const { return pid_; }

  // As a crash does, and again.
  void kill_and_start();

 private:
  void start();
  void kill();

  const std::filesystem::path directory_;
  pid_t pid_ = -1;
};

}  // namespace tarvio_bench

#endif
