// Loaded into tarvio: TARVIO_TEST_FAULT, such as "waitpid 2", lets the second call of that function
// fail, and "waitpid 2 on" all calls from then on, counted in tarvio and the processes that it
// forks. The tools that it runs are left alone. The file TARVIO_TEST_FAULTS exists when a call has
// failed.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
}

namespace {

char wanted_name[16];
int wanted_call = 0;  // none
bool fails_from_then_on = false;
std::atomic<int>* calls = nullptr;  // shared by all processes
const char* note = nullptr;

__attribute__((constructor)) void read_request() {
  const char* const request = std::getenv("TARVIO_TEST_FAULT");
  if (request == nullptr || std::strcmp(program_invocation_short_name, "tarvio") != 0) return;
  calls = static_cast<std::atomic<int>*>(
      mmap(nullptr, sizeof *calls, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  note = std::getenv("TARVIO_TEST_FAULTS");
  (void)std::sscanf(request, "%15s %d", wanted_name, &wanted_call);
  fails_from_then_on = std::strstr(request, " on") != nullptr;
}

bool fails(const char* name, int error) {
  if (wanted_call == 0 || std::strcmp(name, wanted_name) != 0) return false;
  const int call = ++*calls;
  if (fails_from_then_on ? call < wanted_call : call != wanted_call) return false;
  close(open(note, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  errno = error;
  return true;
}

template <typename Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

void* malloc(size_t size) { return fails("malloc", ENOMEM) ? nullptr : __libc_malloc(size); }

void* calloc(size_t count, size_t size) {
  return fails("malloc", ENOMEM) ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
  return fails("malloc", ENOMEM) ? nullptr : __libc_realloc(memory, size);
}

pid_t waitpid(pid_t pid, int* status, int options) {
  if (fails("waitpid", ECHILD)) return -1;
  return real<decltype(waitpid)>("waitpid")(pid, status, options);
}

ssize_t write(int fd, const void* bytes, size_t size) {
  if (fails("write", EIO)) return -1;
  return real<decltype(write)>("write")(fd, bytes, size);
}

ssize_t read(int fd, void* bytes, size_t size) {
  if (fails("read", EIO)) return -1;
  return real<decltype(read)>("read")(fd, bytes, size);
}

}  // extern "C"
