// What the board says of itself without being asked.
#ifndef TARVIO_AGENT_FACTS_H
#define TARVIO_AGENT_FACTS_H

#include <poll.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "agent_settings.h"
#include "base/deadline.h"
#include "fleet/child_process.h"
#include "outbox.h"

namespace agent {

class Facts {
 public:
  static constexpr size_t kFiles = 1 + 3 * fleet::ChildProcess::kFiles;

  // packages_root  of the installed system; empty for the running one.
  Facts(const Settings& settings, const std::string& packages_root, Outbox& outbox);

  void list(pollfd* files) const;
  [[nodiscard]] tarvio::Deadline due() const;
  void step();

  // What the board says of itself once it is connected.
  void tell_system();

 private:
  // What tarvio says, when something has changed, but at most once a second.
  struct Source {
    void (Facts::*take)(const fleet::ChildEnd& end);
    std::vector<std::string> words;
    struct Watch {
      std::string directory;
      int number = -1;  // negative where the directory is not there
    };
    std::vector<Watch> watches;  // of directories whose files change with it
    bool has_changed = true;
    tarvio::Deadline not_before = tarvio::Deadline::after(0);
    std::unique_ptr<fleet::ChildProcess> child = nullptr;
  };

  void watch();
  void take_changes();
  void take_change(int watched, uint32_t change);
  void go_on(Source& source);
  void take_version(const fleet::ChildEnd& end);
  void take_apps(const fleet::ChildEnd& end);
  void take_packages(const fleet::ChildEnd& end);

  const Settings& settings_;
  const std::string packages_root_;
  Outbox& outbox_;
  tarvio::Fd inotify_;
  tarvio::Deadline next_watch_ = tarvio::Deadline::never();
  std::array<Source, 3> sources_;
  std::string client_version_;
  bool has_manager_ = false;
};

}  // namespace agent

#endif
