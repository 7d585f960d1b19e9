#include "boot_order.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "base/chain.h"
#include "settings/warn.h"

namespace tarviod {

bool BootOrder::read() {
  const tq_list_t* const known = tq_known_applications();
  entries_.reset(
      static_cast<Entry*>(malloc((static_cast<size_t>(tq_list_size(known)) + 1) * sizeof(Entry))));
  if (entries_ == nullptr) {
    warn("cannot order the applications", strerror(ENOMEM));
    return false;
  }
  for (tq_app_info* app : tarvio::Elements<tq_app_info>(known)) {
    Entry& entry = entries_[static_cast<size_t>(count_++)];
    entry = {};
    entry.app = app;
    entry.is_usable = read_app_settings(app->package->name, entry.settings);
    is_right_ = is_right_ && entry.is_usable;
  }
  for (int i = 0; i < count_; ++i) place(entries_[static_cast<size_t>(i)]);
  return true;
}

void BootOrder::place(Entry& entry) {
  if (entry.mark == Mark::kPlaced) return;
  if (entry.mark == Mark::kVisited) {
    is_right_ = false;
    return report(entry, "leads back to this application: remove one `after` of the circle");
  }
  entry.mark = Mark::kVisited;
  if (entry.settings.after[0] != '\0') {
    Entry* const other = find(entry.settings.after);
    if (other != nullptr) place(*other);
    if (other == nullptr) report(entry, "is not installed: name another application");
  }
  entry.mark = Mark::kPlaced;
  *end_ = &entry;
  end_ = &entry.next;
}

BootOrder::Entry* BootOrder::find(const char* name) {
  for (int i = 0; i < count_; ++i) {
    Entry& entry = entries_[static_cast<size_t>(i)];
    if (strcmp(entry.app->package->name, name) == 0) return &entry;
  }
  return nullptr;
}

void BootOrder::report(const Entry& entry, const char* why) {
  char place[2 * runtime::kMaxApplicationBytes + 64];
  (void)snprintf(place, sizeof place, "%s/%s%s: after %s", kAppSettingsDirectory,
                 entry.app->package->name, kAppSettingsSuffix, entry.settings.after);
  warn(place, why);
}

}  // namespace tarviod
