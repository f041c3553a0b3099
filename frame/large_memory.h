// Memory for the large arrays of the tables, the slots of their indexes.
// From 2 MiB up an array is mapped on its own, aligned to a huge page and
// marked for huge pages, so that a lookup in the index of a million records
// does not also pay a page-table walk; smaller ones come from the heap.
#pragma once

#include <cstddef>

namespace zemo {

inline constexpr size_t kHugePage = size_t{2} << 20;

// Null when the memory cannot be had.
void* AllocateLarge(size_t bytes) noexcept;
// bytes as given to AllocateLarge.
void FreeLarge(void* memory, size_t bytes) noexcept;

}  // namespace zemo
