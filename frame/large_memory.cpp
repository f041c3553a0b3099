#include "frame/large_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

namespace zemo {

namespace {
size_t RoundUp(size_t bytes) noexcept { return (bytes + kHugePage - 1) & ~(kHugePage - 1); }
}  // namespace

void* AllocateLarge(size_t bytes) noexcept {
  if (bytes < kHugePage) return std::malloc(bytes);
  const size_t size = RoundUp(bytes);
  if (size < bytes) return nullptr;
  // One huge page more than asked, so that an aligned start lies inside;
  // what lies before and behind it goes back at once.
  void* mapped = mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  const auto begin = reinterpret_cast<uintptr_t>(mapped);
  const uintptr_t aligned = (begin + kHugePage - 1) & ~(uintptr_t{kHugePage} - 1);
  if (aligned > begin) munmap(mapped, aligned - begin);
  if (const uintptr_t end = begin + size + kHugePage; end > aligned + size)
    munmap(reinterpret_cast<void*>(aligned + size), end - (aligned + size));
  // Only advice: without huge pages the memory is as good.
  madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(aligned);
}

void FreeLarge(void* memory, size_t bytes) noexcept {
  if (!memory) return;
  if (bytes < kHugePage)
    std::free(memory);
  else
    munmap(memory, RoundUp(bytes));
}

}  // namespace zemo
