// The stream forms of an object as bytes: a whole save, a delta save and a
// load, for round trips and for streams put together by hand.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "frame/persist_interfaces.h"
#include "frame/stream_persist.h"
#include "platform/stream.h"

namespace zemo::testing_support {

// An object's own IUnknown, for a class with several IUnknown bases.
template <class T>
IUnknown* UnknownOf(T* object) {
  if constexpr (requires { object->GetUnknown(); })
    return object->GetUnknown();
  else
    return object;
}

template <class T>
std::vector<uint8_t> StreamBytes(T* object) {
  auto stream = CreateMemoryStream();
  EXPECT_EQ(S_OK, SaveObjectToStream(UnknownOf(object), stream.Get(), TRUE));
  return MemoryStreamBytes(stream.Get());
}

// What changed at or after `since`; since 0 gives the whole save.
template <class T>
std::vector<uint8_t> DeltaBytes(T* object, ZemoTime since = 0) {
  ComPtr<ISaveStreamDeltas> deltas;
  EXPECT_EQ(S_OK, QueryTo(UnknownOf(object), &deltas));
  auto stream = CreateMemoryStream();
  if (deltas) {
    EXPECT_EQ(S_OK, deltas->SaveDeltas(stream.Get(), &since));
  }
  return MemoryStreamBytes(stream.Get());
}

template <class T>
HRESULT LoadStreamBytes(T* object, const std::vector<uint8_t>& bytes) {
  return LoadObjectFromStream(UnknownOf(object), CreateReadOnlyStream(bytes.data(), bytes.size()).Get());
}

}  // namespace zemo::testing_support
