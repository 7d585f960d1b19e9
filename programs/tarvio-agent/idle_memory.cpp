#include "idle_memory.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace agent {

namespace {

// Of a program or a library: what nobody can have written to is as it is in the file.
int give_back_code(dl_phdr_info* object, size_t, void*) {
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  for (ElfW(Half) number = 0; number < object->dlpi_phnum; ++number) {
    const ElfW(Phdr)& segment = object->dlpi_phdr[number];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) continue;
    const uintptr_t begin = (object->dlpi_addr + segment.p_vaddr) / page * page;
    const uintptr_t end = object->dlpi_addr + segment.p_vaddr + segment.p_memsz;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the linker describes memory by numbers
    (void)madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
  }
  return 0;
}

}  // namespace

void IdleMemory::step(bool has_worked) {
  if (has_worked) {
    due_ = tarvio::Deadline::after(kIdleMs);
  } else if (due_.passed()) {
    due_ = tarvio::Deadline::never();
    (void)malloc_trim(0);
    (void)dl_iterate_phdr(give_back_code, nullptr);
  }
}

}  // namespace agent
