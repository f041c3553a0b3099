#include "frame/stream_persist.h"

#include <algorithm>
#include <limits>

namespace zemo {

HRESULT LoadObjectFromStream(IUnknown* object, IStream* stream) {
  if (!object || !stream) return E_POINTER;
  ComPtr<IPersistStream> persist;
  HRESULT hr = QueryTo(object, &persist);
  if (FAILED(hr)) return hr;
  return persist->Load(stream);
}

HRESULT SaveObjectToStream(IUnknown* object, IStream* stream, BOOL clearDirty) {
  if (!object || !stream) return E_POINTER;
  ComPtr<IPersistStream> persist;
  HRESULT hr = QueryTo(object, &persist);
  if (FAILED(hr)) return hr;
  return persist->Save(stream, clearDirty);
}

namespace {
constexpr size_t kMaxCall = std::numeric_limits<ULONG>::max() & ~size_t(0xFFF);
}  // namespace

void ReadBytes(IStream* stream, void* data, size_t bytes) {
  if (!stream) AtlThrow(E_POINTER);
  auto* p = static_cast<uint8_t*>(data);
  while (bytes) {
    ULONG want = static_cast<ULONG>(std::min(bytes, kMaxCall)), got = 0;
    CheckHr(stream->Read(p, want, &got));
    if (got != want) AtlThrow(E_FAIL);
    p += got;
    bytes -= got;
  }
}

void WriteBytes(IStream* stream, const void* data, size_t bytes) {
  if (!stream) AtlThrow(E_POINTER);
  auto* p = static_cast<const uint8_t*>(data);
  while (bytes) {
    ULONG want = static_cast<ULONG>(std::min(bytes, kMaxCall)), put = 0;
    CheckHr(stream->Write(p, want, &put));
    if (put != want) AtlThrow(E_FAIL);
    p += put;
    bytes -= put;
  }
}

uint64_t StreamPosition(IStream* stream) {
  if (!stream) AtlThrow(E_POINTER);
  ULARGE_INTEGER pos{0};
  CheckHr(stream->Seek(LARGE_INTEGER{0}, STREAM_SEEK_CUR, &pos));
  return pos.QuadPart;
}

void StreamSeekTo(IStream* stream, uint64_t position) {
  if (!stream) AtlThrow(E_POINTER);
  CheckHr(stream->Seek(LARGE_INTEGER{static_cast<int64_t>(position)}, STREAM_SEEK_SET, nullptr));
}

}  // namespace zemo
