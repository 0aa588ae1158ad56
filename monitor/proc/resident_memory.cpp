#include "proc/resident_memory.h"

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace {

// A page that was written, for example by the dynamic loader, must stay: its file has other
// content.
bool is_never_written(const ElfW(Phdr) & segment) {
  return segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0;
}

int return_pages(dl_phdr_info* object, size_t, void*) {
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  for (size_t i = 0; i < object->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = object->dlpi_phdr[i];
    if (!is_never_written(segment)) continue;
    const uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
    const uintptr_t first = begin & ~(page - 1);
    const uintptr_t end = (begin + segment.p_memsz + page - 1) & ~(page - 1);
    // The address comes from the loader as a number. NOLINTNEXTLINE(performance-no-int-to-ptr)
    madvise(reinterpret_cast<void*>(first), end - first, MADV_DONTNEED);
  }
  return 0;
}

}  // namespace

void use_one_heap() {
  mallopt(M_ARENA_MAX, 1);
}

void return_unused_memory() {
  malloc_trim(0);
  dl_iterate_phdr(return_pages, nullptr);
}
