#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <utility>

#include "apps/app_runner.h"
#include "base/owners.h"
#include "keeper/keeper.h"
#include "manager.h"
#include "runtime/config.h"
#include "runtime/run_paths.h"
#include "settings/command_line.h"
#include "settings/warn.h"
#include "supervision/background.h"
#include "supervision/instance.h"
#include "supervision/notify.h"
#include "supervision/pid_file.h"
#include "supervision/signals.h"
#include "tarvio/com.h"
#include "tarvio/log.h"
#include "watch/log_reader.h"
#include "watch/log_watch.h"

namespace {

// A closed standard stream becomes /dev/null: else the next file or socket would get its number,
// and messages would go there.
void fill_standard_streams() {
  int fd = -1;
  do {
    fd = open("/dev/null", O_RDWR);  // applications inherit the streams
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) (void)close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 0 && strcmp(argv[0], tarviod::kLogReaderName) == 0) {
    return tarviod::run_log_reader(argc, argv);
  }
  if (argc > 0 && strcmp(argv[0], tarviod::kKeeperName) == 0) return tarviod::run_keeper();
  fill_standard_streams();
  // What else it has inherited is for none of the processes that it starts.
  (void)close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  tarviod::meet_supervisor();
  (void)unsetenv(tarviod::kApplicationVariable);  // of the application that may have started it
  tarviod::CommandLine line = tarviod::parse_command_line(argc, argv);
  if (!line.options) return line.exit_status;
  const tarviod::Options& options = *line.options;

  // What the library prints appears at once, in a file or a pipe as well.
  (void)setvbuf(stdout, nullptr, _IOLBF, 0);
  // One heap for all threads: the com server's needs no arena of its own on a small device.
  (void)mallopt(M_ARENA_MAX, 1);

  tq_log_init();
  tq_set_log_level(options.log_level);
  runtime::Config config;
  runtime::Mistake mistake;
  if (!runtime::read_config(options.config, config, mistake)) {
    tarviod::warn(mistake);
    return tarviod::kExitFailure;
  }
  if (options.check_config) {
    return tarviod::check_config(options, config) ? 0 : tarviod::kExitFailure;
  }
  tarviod::Background background(options.daemon);
  const tarvio::Fd claim = tarviod::claim_instance();
  if (!claim.valid()) return tarviod::kExitFailure;
  const tarvio::Fd signals = tarviod::catch_signals();
  if (!signals.valid()) {
    (void)fprintf(stderr, "tarviod: cannot catch signals: %s\n", strerror(errno));
    return tarviod::kExitFailure;
  }
  static tarvio::Undestroyed<tarviod::AppRunner> kept_runner;  // the com server's thread uses it
  tarviod::AppRunner& runner = kept_runner.object;
  if (!runner.open(options.output)) return tarviod::kExitFailure;
  tarviod::LogWatch log_watch;
  log_watch.start(std::move(config));
  if (!tarviod::set_up(options, log_watch, runner)) return tarviod::kExitFailure;
  if (options.pid_file != nullptr && !tarviod::write_pid_file(options.pid_file)) {
    (void)unlink(TQ_COM_SOCKET_PATH);
    (void)unlink(runtime::kStatePath);
    return tarviod::kExitFailure;
  }
  background.ready();
  tarviod::notify("READY=1");
  tarviod::serve(options, signals.get(), log_watch);
  if (options.pid_file != nullptr) (void)unlink(options.pid_file);
  return 0;
}
