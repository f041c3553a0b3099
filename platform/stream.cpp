#include "platform/stream.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/object.h"

namespace zemo {
namespace {

// Position arithmetic shared by the streams: origin + move, refusing a
// negative result.
HRESULT NewPosition(uint64_t current, uint64_t size, LARGE_INTEGER move, DWORD origin, uint64_t& out) {
  uint64_t base;
  switch (origin) {
    case STREAM_SEEK_SET: base = 0; break;
    case STREAM_SEEK_CUR: base = current; break;
    case STREAM_SEEK_END: base = size; break;
    default: return STG_E_INVALIDFUNCTION;
  }
  int64_t delta = move.QuadPart;
  if (delta < 0 && uint64_t(0) - static_cast<uint64_t>(delta) > base) return STG_E_INVALIDFUNCTION;
  out = base + static_cast<uint64_t>(delta);
  return S_OK;
}

// The operations no stream here supports.
template <class D>
class StreamBase : public Object<D, IStream> {
 public:
  HRESULT CopyTo(IStream* to, ULARGE_INTEGER bytes, ULARGE_INTEGER* read, ULARGE_INTEGER* written) override {
    if (!to) return STG_E_INVALIDPOINTER;
    uint64_t total = 0, out = 0;
    uint8_t buf[4096];
    while (total < bytes.QuadPart) {
      ULONG want = static_cast<ULONG>(std::min<uint64_t>(sizeof buf, bytes.QuadPart - total)), got = 0, put = 0;
      HRESULT hr = this->Read(buf, want, &got);
      if (FAILED(hr)) return hr;
      if (got == 0) break;
      total += got;
      hr = to->Write(buf, got, &put);
      out += put;
      if (FAILED(hr)) return hr;
    }
    if (read) read->QuadPart = total;
    if (written) written->QuadPart = out;
    return S_OK;
  }
  HRESULT Commit(DWORD) override { return S_OK; }
  HRESULT Revert() override { return S_OK; }
  HRESULT LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
  HRESULT UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return STG_E_INVALIDFUNCTION; }
  HRESULT Stat(STATSTG* stat, DWORD) override {
    if (!stat) return STG_E_INVALIDPOINTER;
    std::memset(stat, 0, sizeof *stat);
    stat->type = 2;  // a stream
    ULARGE_INTEGER cur{}, end{};
    LARGE_INTEGER zero{0};
    HRESULT hr = this->Seek(zero, STREAM_SEEK_CUR, &cur);
    if (SUCCEEDED(hr)) hr = this->Seek(zero, STREAM_SEEK_END, &end);
    if (SUCCEEDED(hr)) hr = this->Seek(LARGE_INTEGER{static_cast<int64_t>(cur.QuadPart)}, STREAM_SEEK_SET, nullptr);
    stat->cbSize = end;
    return hr;
  }
};

class MemoryStream final : public StreamBase<MemoryStream> {
 public:
  HRESULT Read(void* buffer, ULONG bytes, ULONG* read) override {
    return Locked([&]() -> HRESULT {
      if (!buffer && bytes) return STG_E_INVALIDPOINTER;
      uint64_t avail = m_pos < m_data.size() ? m_data.size() - m_pos : 0;
      ULONG n = static_cast<ULONG>(std::min<uint64_t>(avail, bytes));
      if (n) std::memcpy(buffer, m_data.data() + m_pos, n);
      m_pos += n;
      if (read) *read = n;
      return S_OK;
    });
  }
  HRESULT Write(const void* buffer, ULONG bytes, ULONG* written) override {
    return Locked([&]() -> HRESULT {
      if (!buffer && bytes) return STG_E_INVALIDPOINTER;
      if (written) *written = 0;
      uint64_t end = m_pos + bytes;
      if (end > m_data.max_size()) return STG_E_MEDIUMFULL;
      try {
        if (end > m_data.size()) m_data.resize(end);  // fills a hole left by a seek with zeros
      } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
      }
      if (bytes) std::memcpy(m_data.data() + m_pos, buffer, bytes);
      m_pos = end;
      if (written) *written = bytes;
      return S_OK;
    });
  }
  HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* pos) override {
    return Locked([&]() -> HRESULT {
      uint64_t p;
      HRESULT hr = NewPosition(m_pos, m_data.size(), move, origin, p);
      if (FAILED(hr)) return hr;
      m_pos = p;
      if (pos) pos->QuadPart = p;
      return S_OK;
    });
  }
  HRESULT SetSize(ULARGE_INTEGER size) override {
    return Locked([&] {
      if (size.QuadPart > m_data.max_size()) AtlThrow(STG_E_MEDIUMFULL);
      m_data.resize(size.QuadPart);
    });
  }
  HRESULT Clone(IStream** out) override {
    return Locked([&] {
      CheckOut(out);
      auto copy = MemoryStream::Create();
      copy->m_data = m_data;
      copy->m_pos = m_pos;
      *out = copy.Detach();
    });
  }

  std::vector<uint8_t> m_data;
  uint64_t m_pos = 0;
};

class ReadOnlyStream final : public StreamBase<ReadOnlyStream> {
 public:
  ReadOnlyStream(const void* data, size_t size) : m_data(static_cast<const uint8_t*>(data)), m_size(size) {}

  HRESULT Read(void* buffer, ULONG bytes, ULONG* read) override {
    return Locked([&]() -> HRESULT {
      if (!buffer && bytes) return STG_E_INVALIDPOINTER;
      uint64_t avail = m_pos < m_size ? m_size - m_pos : 0;
      ULONG n = static_cast<ULONG>(std::min<uint64_t>(avail, bytes));
      if (n) std::memcpy(buffer, m_data + m_pos, n);
      m_pos += n;
      if (read) *read = n;
      return S_OK;
    });
  }
  HRESULT Write(const void*, ULONG, ULONG* written) override {
    if (written) *written = 0;
    return STG_E_ACCESSDENIED;
  }
  HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* pos) override {
    return Locked([&]() -> HRESULT {
      uint64_t p;
      HRESULT hr = NewPosition(m_pos, m_size, move, origin, p);
      if (FAILED(hr)) return hr;
      m_pos = p;
      if (pos) pos->QuadPart = p;
      return S_OK;
    });
  }
  HRESULT SetSize(ULARGE_INTEGER) override { return STG_E_ACCESSDENIED; }
  HRESULT Clone(IStream** out) override {
    return Locked([&] {
      CheckOut(out);
      auto copy = ReadOnlyStream::Create(m_data, m_size);
      copy->m_pos = m_pos;
      *out = copy.Detach();
    });
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  uint64_t m_pos = 0;
};

class FileStream final : public StreamBase<FileStream> {
 public:
  explicit FileStream(std::FILE* f) : m_file(f) {}
  ~FileStream() {
    if (m_file) std::fclose(m_file);
  }

  HRESULT Read(void* buffer, ULONG bytes, ULONG* read) override {
    return Locked([&]() -> HRESULT {
      if (!buffer && bytes) return STG_E_INVALIDPOINTER;
      size_t n = bytes ? std::fread(buffer, 1, bytes, m_file) : 0;
      if (read) *read = static_cast<ULONG>(n);
      if (n < bytes && std::ferror(m_file)) return HresultFromErrno(errno);
      return S_OK;
    });
  }
  HRESULT Write(const void* buffer, ULONG bytes, ULONG* written) override {
    return Locked([&]() -> HRESULT {
      if (!buffer && bytes) return STG_E_INVALIDPOINTER;
      size_t n = bytes ? std::fwrite(buffer, 1, bytes, m_file) : 0;
      if (written) *written = static_cast<ULONG>(n);
      if (n < bytes) return std::ferror(m_file) ? HresultFromErrno(errno) : STG_E_MEDIUMFULL;
      return S_OK;
    });
  }
  HRESULT Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* pos) override {
    return Locked([&]() -> HRESULT {
      long cur = std::ftell(m_file);
      if (std::fseek(m_file, 0, SEEK_END) != 0) return HresultFromErrno(errno);
      long size = std::ftell(m_file);
      uint64_t p;
      HRESULT hr = NewPosition(static_cast<uint64_t>(cur), static_cast<uint64_t>(size), move, origin, p);
      if (FAILED(hr)) p = static_cast<uint64_t>(cur);
      if (std::fseek(m_file, static_cast<long>(p), SEEK_SET) != 0) return HresultFromErrno(errno);
      if (FAILED(hr)) return hr;
      if (pos) pos->QuadPart = p;
      return S_OK;
    });
  }
  HRESULT SetSize(ULARGE_INTEGER) override { return STG_E_INVALIDFUNCTION; }
  HRESULT Clone(IStream**) override { return E_NOTIMPL; }

 private:
  std::FILE* m_file;
};

}  // namespace

ComPtr<IStream> CreateMemoryStream() { return ComPtr<IStream>(MemoryStream::Create().Get()); }

ComPtr<IStream> CreateMemoryStream(const void* data, size_t size) {
  auto s = MemoryStream::Create();
  auto* bytes = static_cast<const uint8_t*>(data);
  s->m_data.assign(bytes, bytes + size);
  return ComPtr<IStream>(s.Get());
}

std::vector<uint8_t> MemoryStreamBytes(IStream* stream) {
  return static_cast<MemoryStream*>(stream)->m_data;
}

ComPtr<IStream> CreateReadOnlyStream(const void* data, size_t size) {
  return ComPtr<IStream>(ReadOnlyStream::Create(data, size).Get());
}

HRESULT CreateFileStream(const std::string& path, const char* mode, IStream** out) {
  return Boundary([&]() -> HRESULT {
    CheckOut(out);
    std::string m = std::string(mode) == "w" ? "w+b" : "rb";
    std::FILE* f = std::fopen(path.c_str(), m.c_str());
    if (!f) return HresultFromErrno(errno);
    ComPtr<FileStream> s;
    try {
      s = FileStream::Create(f);
    } catch (...) {
      std::fclose(f);
      throw;
    }
    *out = s.Detach();
    return S_OK;
  });
}

}  // namespace zemo
