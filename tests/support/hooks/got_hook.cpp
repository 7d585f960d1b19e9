#include "support/hooks/got_hook.h"

#include <gtest/gtest.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace tarvio_test {
namespace {

struct Range {
  uintptr_t begin = 0;
  uintptr_t end = 0;
};

// The loaded library, as its program headers and its dynamic section describe it.
struct Library {
  ElfW(Addr) base = 0;
  Range read_only;  // after relocation; the tables of imports lie here
  const char* strings = nullptr;
  const ElfW(Sym) * symbols = nullptr;
  uintptr_t plt_relocations = 0;
  size_t plt_relocations_size = 0;
  uintptr_t rela = 0;
  size_t rela_size = 0;
  uintptr_t rel = 0;
  size_t rel_size = 0;
  bool plt_is_rela = false;
};

// A relocation's info word holds its symbol above its type.
constexpr int kSymbolShift = sizeof(ElfW(Addr)) == 8 ? 32 : 8;

void read_dynamic_section(const ElfW(Dyn) * entry, Library& library) {
  // The loader of some platforms has relocated these addresses in place, that of others has not.
  const auto address = [&](ElfW(Addr) value) {
    return value < library.base ? value + library.base : value;
  };
  for (; entry->d_tag != DT_NULL; ++entry) {
    const ElfW(Addr) value = entry->d_un.d_val;
    switch (entry->d_tag) {
      case DT_STRTAB:
        library.strings = reinterpret_cast<const char*>(address(value));
        break;
      case DT_SYMTAB:
        library.symbols = reinterpret_cast<const ElfW(Sym)*>(address(value));
        break;
      case DT_JMPREL:
        library.plt_relocations = address(value);
        break;
      case DT_PLTRELSZ:
        library.plt_relocations_size = value;
        break;
      case DT_PLTREL:
        library.plt_is_rela = value == DT_RELA;
        break;
      case DT_RELA:
        library.rela = address(value);
        break;
      case DT_RELASZ:
        library.rela_size = value;
        break;
      case DT_REL:
        library.rel = address(value);
        break;
      case DT_RELSZ:
        library.rel_size = value;
        break;
      default:
        break;
    }
  }
}

int read_if_tarvio(dl_phdr_info* object, size_t, void* result) {
  if (std::string_view(object->dlpi_name).find("libtarvio.so") == std::string_view::npos) return 0;
  Library library;
  library.base = object->dlpi_addr;
  for (const ElfW(Phdr)* header = object->dlpi_phdr;
       header != object->dlpi_phdr + object->dlpi_phnum; ++header) {
    const uintptr_t begin = library.base + header->p_vaddr;
    if (header->p_type == PT_GNU_RELRO) library.read_only = {begin, begin + header->p_memsz};
    if (header->p_type == PT_DYNAMIC)
      read_dynamic_section(reinterpret_cast<const ElfW(Dyn)*>(begin), library);
  }
  *static_cast<std::optional<Library>*>(result) = library;
  return 1;
}

std::optional<Library> find_library() {
  std::optional<Library> library;
  ::dl_iterate_phdr(read_if_tarvio, &library);
  return library;
}

template <typename Relocation>
void add_slots(const Library& library, uintptr_t table, size_t size, const std::string& name,
               std::vector<void**>& slots) {
  const auto* relocations = reinterpret_cast<const Relocation*>(table);
  for (size_t i = 0; i < size / sizeof(Relocation); ++i) {
    const size_t symbol = relocations[i].r_info >> kSymbolShift;
    if (symbol != 0 && library.strings + library.symbols[symbol].st_name == name)
      slots.push_back(reinterpret_cast<void**>(library.base + relocations[i].r_offset));
  }
}

// Calls go through one table of addresses, uses of a function's address through another: both
// count.
std::vector<void**> slots_of(const Library& library, const std::string& name) {
  std::vector<void**> slots;
  if (library.plt_is_rela) {
    add_slots<ElfW(Rela)>(library, library.plt_relocations, library.plt_relocations_size, name,
                          slots);
  } else {
    add_slots<ElfW(Rel)>(library, library.plt_relocations, library.plt_relocations_size, name,
                         slots);
  }
  add_slots<ElfW(Rela)>(library, library.rela, library.rela_size, name, slots);
  add_slots<ElfW(Rel)>(library, library.rel, library.rel_size, name, slots);
  return slots;
}

// 64-bit file offsets give many functions another name, with the same arguments.
std::vector<void**> slots_of_variants(const Library& library, const std::string& name) {
  std::vector<void**> slots = slots_of(library, name);
  for (void** slot : slots_of(library, name + "64")) slots.push_back(slot);
  return slots;
}

void store(const Library& library, void** slot, void* value) {
  const auto page_size = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  const uintptr_t address = reinterpret_cast<uintptr_t>(slot);
  void* page = reinterpret_cast<void*>(address / page_size * page_size);
  if (::mprotect(page, page_size, PROT_READ | PROT_WRITE) != 0) {
    ADD_FAILURE() << "cannot write to the library's imports: " << std::strerror(errno);
    return;
  }
  __atomic_store_n(slot, value, __ATOMIC_SEQ_CST);
  const uintptr_t read_only_end = library.read_only.end / page_size * page_size;
  if (address >= library.read_only.begin && address < read_only_end)
    ::mprotect(page, page_size, PROT_READ);
}

}  // namespace

bool library_imports(const std::string& name) {
  const std::optional<Library> library = find_library();
  return library && !slots_of_variants(*library, name).empty();
}

ImportPatch::ImportPatch(const std::string& name, void* replacement) {
  const std::optional<Library> library = find_library();
  if (!library) {
    ADD_FAILURE() << "libtarvio.so is not loaded";
    return;
  }
  for (void** slot : slots_of_variants(*library, name)) {
    slots_.push_back({slot, *slot});
    store(*library, slot, replacement);
  }
  if (slots_.empty()) ADD_FAILURE() << "libtarvio.so does not import " << name;
}

ImportPatch::~ImportPatch() {
  const std::optional<Library> library = find_library();
  for (const Slot& slot : slots_) store(*library, slot.at, slot.before);
}

}  // namespace tarvio_test
