// Loaded into tarvio: all allocations fail from the one of the number TARVIO_TEST_FAULT on, counted
// in tarvio and the processes that it forks. The tools that it runs are left alone. The file
// TARVIO_TEST_FAULTS exists when one has failed.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
}

namespace {

int first = 0;                      // 0 for none
std::atomic<int>* count = nullptr;  // shared by all processes
const char* note = nullptr;

__attribute__((constructor)) void read_request() {
  const char* const request = std::getenv("TARVIO_TEST_FAULT");
  if (request == nullptr || std::strcmp(program_invocation_short_name, "tarvio") != 0) return;
  count = static_cast<std::atomic<int>*>(
      mmap(nullptr, sizeof *count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  note = std::getenv("TARVIO_TEST_FAULTS");
  first = std::atoi(request);
}

bool fails() {
  if (first == 0 || ++*count < first) return false;
  close(open(note, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {

void* malloc(size_t size) { return fails() ? nullptr : __libc_malloc(size); }

void* calloc(size_t number, size_t size) { return fails() ? nullptr : __libc_calloc(number, size); }

void* realloc(void* memory, size_t size) {
  return fails() ? nullptr : __libc_realloc(memory, size);
}

}  // extern "C"
