#include "util/tq_flash_observer.h"

#include <stddef.h>
#include <sys/stat.h>

#include "base/chain.h"
#include "base/owners.h"
#include "tarvio/text.h"

static_assert(offsetof(tq_flash_event, bytes) == 16);
static_assert(offsetof(tq_flash_event, area) == 24);
static_assert(sizeof(tq_flash_event) == 24 + 4 * sizeof(void*));
static_assert(sizeof(tq_flash_observer) == 2 * sizeof(void*));

namespace {

// Of one thread.
struct Observation {
  tq_flash_observer observer;
  const char* area;
  tq_flash_event step;  // in progress; its number is 0 when none is
  int calls;            // that have not returned
  int stop;
};

constinit thread_local Observation observation = {};

bool is_observed() { return observation.observer.observe != nullptr && observation.stop == 0; }

bool is_step_observed() { return is_observed() && observation.step.step != 0; }

uint64_t bytes_of(const char* file) {
  const tarvio::ErrnoKeeper keeper;  // it may say why the step failed
  struct stat status = {};
  return stat(file, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

// Of a copy, as the observer may set another one.
void report(int32_t kind, int32_t code, const char* line) {
  const tq_flash_observer observer = observation.observer;
  tq_flash_event event = observation.step;
  event.kind = kind;
  event.code = code;
  event.line = line;
  observation.stop = observer.observe(&event, observer.user);
}

}  // namespace

namespace tarvio {

FlashWork::FlashWork() : FlashWork(observation.area) {}

FlashWork::FlashWork(const char* area) : area_before_(observation.area) {
  observation.area = area;
  ++observation.calls;
}

FlashWork::~FlashWork() {
  observation.area = area_before_;
  if (--observation.calls == 0) observation.stop = 0;
}

int FlashWork::stop() { return observation.stop; }

int FlashWork::result(int code) { return stop() != 0 ? stop() : code; }

FlashStep::FlashStep(int32_t step, const char* file, const char* device, uint32_t start,
                     uint32_t bytes) {
  if (!is_observed()) return;
  observation.step = {.kind = 0,
                      .step = step,
                      .code = 0,
                      .start = start,
                      .bytes = bytes == kOfFile ? bytes_of(file) : bytes,
                      .area = observation.area,
                      .file = file,
                      .device = device,
                      .line = nullptr};
  report(TQ_FLASH_BEGIN, 0, nullptr);
}

FlashStep::~FlashStep() { observation.step.step = 0; }

int FlashStep::end(int code) {
  const ErrnoKeeper keeper;  // whatever the observer does
  if (is_step_observed()) {
    if (observation.step.file != nullptr) observation.step.bytes = bytes_of(observation.step.file);
    report(TQ_FLASH_END, code, nullptr);
  }
  return result(code);
}

void observe_tool(tq_list_t* lines) {
  for (char* line : Elements<char>(lines)) {
    if (!is_step_observed()) return;
    report(TQ_FLASH_LINE, 0, tq_chop(line));
  }
}

}  // namespace tarvio

void tq_set_flash_observer(const tq_flash_observer* observer) {
  observation.observer = observer == nullptr ? tq_flash_observer{} : *observer;
}
