// Whose an allocation is, the stack tells: the innermost frame outside the C++ library decides. The libraries
// call this program's operator new, because a program's definition goes before theirs.
#include "trials/allocations.h"

#include <execinfo.h>
#include <link.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace trials {
namespace {

struct Range {
  std::uintptr_t begin = 0, end = 0;
  bool Holds(const void* address) const {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    return begin <= at && at < end;
  }
};

struct Libraries {
  Range module, cxx;
};

int NoteLibrary(dl_phdr_info* info, std::size_t, void* found) {
  auto* libraries = static_cast<Libraries*>(found);
  Range range{UINTPTR_MAX, 0};
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const auto& header = info->dlpi_phdr[i];
    if (header.p_type != PT_LOAD) continue;
    range.begin = std::min<std::uintptr_t>(range.begin, info->dlpi_addr + header.p_vaddr);
    range.end = std::max<std::uintptr_t>(range.end, info->dlpi_addr + header.p_vaddr + header.p_memsz);
  }
  if (std::strstr(info->dlpi_name, "libvelomira") != nullptr) libraries->module = range;
  if (std::strstr(info->dlpi_name, "libstdc++") != nullptr) libraries->cxx = range;
  return 0;
}

std::atomic<bool> counting = false;
std::atomic<std::size_t> seen = 0;
std::size_t failing = 0;  // written while not counting
Libraries libraries;

// `caller`: where operator new returns to.
bool IsTheModules(const void* caller) {
  if (!libraries.cxx.Holds(caller)) return libraries.module.Holds(caller);
  void* frames[24];
  void** const end = frames + backtrace(frames, 24);
  void** frame = std::find(frames, end, caller);
  while (frame != end && libraries.cxx.Holds(*frame)) ++frame;
  return frame != end && libraries.module.Holds(*frame);
}

}  // namespace

void FailAllocation(std::size_t n) {
  libraries = {};
  dl_iterate_phdr(NoteLibrary, &libraries);
  void* frame = nullptr;
  backtrace(&frame, 1);  // which loads the unwinder's library at first
  failing = n;
  seen = 0;
  counting = true;
}

std::size_t AllocationsSeen() {
  counting = false;
  return seen;
}

static void* Allocate(std::size_t size, const void* caller) {
  if (counting && IsTheModules(caller) && ++seen == failing) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace trials

void* operator new(std::size_t size) {
  if (void* memory = trials::Allocate(size, __builtin_return_address(0))) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return trials::Allocate(size, __builtin_return_address(0));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
