// Arrays handed out in task memory (CoTaskMemAlloc), which the caller frees:
// an empty one goes out as a null pointer and a count of 0.
#pragma once

#include <cstring>
#include <span>
#include <type_traits>

#include "platform/exception.h"
#include "platform/strings.h"

namespace zemo {

// Raises E_OUTOFMEMORY when the copy cannot be had; out and count are then
// null and 0.
template <class T>
void GiveTaskArray(std::span<const T> items, T** out, ULONG* count) {
  static_assert(std::is_trivially_copyable_v<T>);
  *out = nullptr;
  *count = 0;
  if (items.empty()) return;
  auto* copy = static_cast<T*>(CoTaskMemAlloc(items.size_bytes()));
  if (!copy) AtlThrow(E_OUTOFMEMORY);
  std::memcpy(copy, items.data(), items.size_bytes());
  *out = copy;
  *count = static_cast<ULONG>(items.size());
}

}  // namespace zemo
