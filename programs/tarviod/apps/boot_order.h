// The order in which the applications are started with the manager: each after the one that its
// settings name.
#ifndef TARVIOD_BOOT_ORDER_H
#define TARVIOD_BOOT_ORDER_H

#include <memory>

#include "base/owners.h"
#include "settings/app_settings.h"
#include "tarvio/app.h"

namespace tarviod {

class BootOrder {
 public:
  // Reads the settings of all known applications and reports their mistakes. False, with the reason
  // reported, when memory runs out.
  bool read();

  // No settings have a mistake, and none leads back to the application that has them.
  [[nodiscard]] bool is_right() const { return is_right_; }

  // In their order, as `take(application, settings)`. Those whose settings have a mistake are left
  // out.
  void each(auto take) const {
    for (const Entry* entry = first_; entry != nullptr; entry = entry->next) {
      if (entry->is_usable) take(*entry->app, entry->settings);
    }
  }

 private:
  enum class Mark : uint8_t { kNew, kVisited, kPlaced };
  struct Entry {
    tq_app_info* app = nullptr;
    AppSettings settings;
    bool is_usable = false;
    Mark mark = Mark::kNew;
    const Entry* next = nullptr;
  };

  void place(Entry& entry);
  Entry* find(const char* name);
  static void report(const Entry& entry, const char* why);

  std::unique_ptr<Entry[], tarvio::Free> entries_;
  int count_ = 0;
  const Entry* first_ = nullptr;
  const Entry** end_ = &first_;
  bool is_right_ = true;
};

}  // namespace tarviod

#endif
