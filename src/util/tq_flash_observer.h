// Reports the work on the flash to the observer of the thread. Without an observer a step costs a
// look at one pointer.
#ifndef TARVIO_SRC_UTIL_TQ_FLASH_OBSERVER_H
#define TARVIO_SRC_UTIL_TQ_FLASH_OBSERVER_H

#include <stdint.h>

#include "tarvio/backup.h"

namespace tarvio {

// A call that works on the flash, and may make others that do. When the observer stops the work,
// none of them begins anything more; the stop holds until the outermost one returns.
class FlashWork {
 public:
  FlashWork();
  // Of an area; null for one without a name.
  explicit FlashWork(const char* area);
  FlashWork(const FlashWork&) = delete;
  FlashWork& operator=(const FlashWork&) = delete;
  ~FlashWork();

  // 0 while the work goes on, else what the observer returned.
  [[nodiscard]] static int stop();
  // The stop, or else the code.
  [[nodiscard]] static int result(int code);

 private:
  const char* area_before_;
};

// A step: reported when it begins and by `end`. Steps do not overlap. The strings are borrowed.
class FlashStep : public FlashWork {
 public:
  static constexpr uint32_t kOfFile = UINT32_MAX;  // as many bytes as the file has

  explicit FlashStep(int32_t step, const char* file = nullptr, const char* device = nullptr,
                     uint32_t start = 0, uint32_t bytes = 0);
  ~FlashStep();

  // Returns the stop, or else the code, which may be dropped where it changes nothing.
  int end(int code);
};

// Reports the lines that the tool of a step has printed, and cuts their line ends in place.
void observe_tool(tq_list_t* lines);

}  // namespace tarvio

#endif
