#include "fleet/broker_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include "base/owners.h"
#include "fleet/board_certificates.h"
#include "fleet/simulated_board.h"
#include "support/say.h"

namespace tarvio_bench {

namespace {

constexpr char kHere[] = "127.0.0.1";
constexpr int kBoardPort = 8883;
constexpr int kOperatorPort = 8884;
constexpr char kPackaged[] = BENCH_FLEET_FILES;
constexpr std::chrono::seconds kPatience(60);

std::string text_in(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

void replace(std::string& text, const std::string& from, const std::string& to) {
  size_t at = text.find(from);
  if (at == std::string::npos) die("the packaged settings of the broker have no " + from);
  for (; at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// The packaged settings, with other directories and without the page, which needs passwords. The
// broker stays root, who may read what lies there.
std::string settings(const std::filesystem::path& directory, const Certificates& certificates) {
  const std::string packaged(kPackaged);
  std::string text = text_in(packaged + "/mosquitto.conf");
  replace(text, "/etc/mosquitto/certs", certificates.directory());
  replace(text, "/etc/mosquitto/tarvio-access", packaged + "/access");
  const size_t page = text.find("listener 8885");
  if (page == std::string::npos) die("the packaged settings of the broker have no listener 8885");
  return "user root\npersistence_location " + directory.string() + "/\n" + text.substr(0, page);
}

bool listens() {
  const tarvio::Fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(kOperatorPort);
  address.sin_addr.s_addr = inet_addr(kHere);
  return connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

Certificates::Certificates(std::filesystem::path directory, int boards)
    : directory_(std::move(directory)) {
  std::filesystem::create_directories(directory_);
  const std::string make =
      "cd '" + directory_.string() + "' && sh '" + kPackaged + "/certificates' ";
  for (const std::string& what :
       {std::string("ca"), std::string("server ") + kHere, std::string("operator ") + kOperator}) {
    if (std::system((make + what).c_str()) != 0) die("cannot make certificates");
  }
  BoardCertificates maker(directory_);
  for (int number = 0; number < boards; ++number) maker.make(board_name(number));
}

fleet::Broker Certificates::broker(int port, const std::string& name) const {
  fleet::Broker broker;
  broker.host = kHere;
  broker.port = port;
  broker.ca_file = directory_ / "ca.crt";
  broker.certificate = directory_ / (name + ".crt");
  broker.key = directory_ / (name + ".key");
  return broker;
}

fleet::Broker Certificates::broker_of_board(int number) const {
  return broker(kBoardPort, board_name(number));
}

fleet::Broker Certificates::broker_of_operator() const { return broker(kOperatorPort, kOperator); }

BrokerServer::BrokerServer(std::filesystem::path directory, const Certificates& certificates)
    : directory_(std::move(directory)) {
  std::filesystem::create_directories(directory_);
  std::ofstream(directory_ / "conf") << settings(directory_, certificates);
  start();
}

BrokerServer::~BrokerServer() { kill(); }

void BrokerServer::start() {
  const std::string log = directory_ / "log";
  pid_ = fork();
  if (pid_ < 0) die("cannot start the broker");
  if (pid_ == 0) {
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    (void)dup2(file, STDOUT_FILENO);
    (void)dup2(file, STDERR_FILENO);
    (void)setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    const std::string conf = directory_ / "conf";
    (void)execlp("mosquitto", "mosquitto", "-c", conf.c_str(), nullptr);
    _exit(127);
  }
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!listens()) {
    if (waitpid(pid_, nullptr, WNOHANG) == pid_ || std::chrono::steady_clock::now() > end) {
      die("the broker does not start; its log:\n" + text_in(log));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void BrokerServer::kill() {
  (void)::kill(pid_, SIGKILL);
  (void)waitpid(pid_, nullptr, 0);
}

void BrokerServer::kill_and_start() {
  kill();
  start();
}

}  // namespace tarvio_bench
