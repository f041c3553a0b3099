// IStream and the streams the runtime offers: a growing memory stream, a
// read-only view of a caller's bytes, and a file stream.
//
// Semantics follow the platform: a read near the end gives what is there and
// S_OK with the short count; a seek may pass the end (a later write fills the
// hole with zeros); a seek to a negative position is STG_E_INVALIDFUNCTION and
// leaves the position where it was.
#pragma once

#include <string>
#include <vector>

#include "platform/unknown.h"

enum : DWORD { STREAM_SEEK_SET = 0, STREAM_SEEK_CUR = 1, STREAM_SEEK_END = 2 };

struct STATSTG {
  LPOLESTR pwcsName;
  DWORD type;
  ULARGE_INTEGER cbSize;
  uint64_t mtime, ctime, atime;
  DWORD grfMode;
  DWORD grfLocksSupported;
  CLSID clsid;
  DWORD grfStateBits;
  DWORD reserved;
};

struct ISequentialStream : IUnknown {
  static constexpr IID iid = MakeGuid("0C733A30-2A1C-11CE-ADE5-00AA0044773D");
  virtual HRESULT Read(void* buffer, ULONG bytes, ULONG* read) = 0;
  virtual HRESULT Write(const void* buffer, ULONG bytes, ULONG* written) = 0;
};

struct IStream : ISequentialStream {
  static constexpr IID iid = MakeGuid("0000000C-0000-0000-C000-000000000046");
  virtual HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) = 0;
  virtual HRESULT SetSize(ULARGE_INTEGER size) = 0;
  virtual HRESULT CopyTo(IStream* to, ULARGE_INTEGER bytes, ULARGE_INTEGER* read, ULARGE_INTEGER* written) = 0;
  virtual HRESULT Commit(DWORD flags) = 0;
  virtual HRESULT Revert() = 0;
  virtual HRESULT LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER bytes, DWORD type) = 0;
  virtual HRESULT UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER bytes, DWORD type) = 0;
  virtual HRESULT Stat(STATSTG* stat, DWORD flags) = 0;
  virtual HRESULT Clone(IStream** out) = 0;
};

namespace zemo {

// A new, empty memory stream (the platform's stream on global memory).
ComPtr<IStream> CreateMemoryStream();
// A memory stream that starts with a copy of these bytes, positioned at 0.
ComPtr<IStream> CreateMemoryStream(const void* data, size_t size);
// The bytes of a stream made by CreateMemoryStream.
std::vector<uint8_t> MemoryStreamBytes(IStream* stream);

// Reads the caller's bytes in place; writes fail with STG_E_ACCESSDENIED. The
// bytes must outlive the stream.
ComPtr<IStream> CreateReadOnlyStream(const void* data, size_t size);

// A stream over a file: mode "r" reads an existing file, "w" creates or
// truncates one. Failures give the system's error as a status.
HRESULT CreateFileStream(const std::string& path, const char* mode, IStream** out);

}  // namespace zemo
