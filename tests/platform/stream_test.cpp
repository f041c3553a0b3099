#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "platform/stream.h"

namespace {

using zemo::ComPtr;

uint64_t Seek(IStream* s, int64_t move, DWORD origin, HRESULT expect = S_OK) {
  ULARGE_INTEGER pos{~0ull};
  EXPECT_EQ(expect, s->Seek(LARGE_INTEGER{move}, origin, &pos));
  return pos.QuadPart;
}

// The behaviour every stream shares at its edges.
void CheckEdges(IStream* s, size_t size) {
  EXPECT_EQ(size, Seek(s, 0, STREAM_SEEK_END));
  EXPECT_EQ(0u, Seek(s, 0, STREAM_SEEK_SET));
  // Short read near the end: what is there, with S_OK.
  Seek(s, static_cast<int64_t>(size) - 2, STREAM_SEEK_SET);
  uint8_t buf[8];
  ULONG got = 99;
  EXPECT_EQ(S_OK, s->Read(buf, 8, &got));
  EXPECT_EQ(2u, got);
  // Past the end: nothing, still S_OK.
  EXPECT_EQ(size + 10, Seek(s, 10, STREAM_SEEK_END));
  EXPECT_EQ(S_OK, s->Read(buf, 8, &got));
  EXPECT_EQ(0u, got);
  // A negative position is refused and leaves the position where it was.
  Seek(s, 3, STREAM_SEEK_SET);
  Seek(s, -4, STREAM_SEEK_CUR, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(3u, Seek(s, 0, STREAM_SEEK_CUR));
  Seek(s, -1, STREAM_SEEK_SET, STG_E_INVALIDFUNCTION);
  Seek(s, 0, 7, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(1u, Seek(s, -static_cast<int64_t>(size) + 1, STREAM_SEEK_END));
}

TEST(MemoryStream, EdgesAndHolesLeftBySeeks) {
  const uint8_t data[] = {1, 2, 3, 4, 5, 6};
  ComPtr<IStream> s = zemo::CreateMemoryStream(data, sizeof data);
  CheckEdges(s.Get(), sizeof data);

  // Writing after a seek past the end fills the hole with zeros.
  Seek(s.Get(), 2, STREAM_SEEK_END);
  ULONG put = 0;
  const uint8_t tail = 9;
  ASSERT_EQ(S_OK, s->Write(&tail, 1, &put));
  EXPECT_EQ(1u, put);
  EXPECT_EQ((std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 0, 0, 9}), zemo::MemoryStreamBytes(s.Get()));

  // Overwrite in the middle keeps the size.
  Seek(s.Get(), 1, STREAM_SEEK_SET);
  const uint8_t mid[] = {7, 7};
  s->Write(mid, 2, nullptr);
  EXPECT_EQ((std::vector<uint8_t>{1, 7, 7, 4, 5, 6, 0, 0, 9}), zemo::MemoryStreamBytes(s.Get()));

  STATSTG st;
  ASSERT_EQ(S_OK, s->Stat(&st, 0));
  EXPECT_EQ(9u, st.cbSize.QuadPart);
  EXPECT_EQ(3u, Seek(s.Get(), 0, STREAM_SEEK_CUR));  // Stat keeps the position
  EXPECT_EQ(STG_E_INVALIDPOINTER, s->Read(nullptr, 1, nullptr));
}

TEST(MemoryStream, CloneAndCopyTo) {
  const uint8_t data[] = {10, 20, 30, 40};
  ComPtr<IStream> s = zemo::CreateMemoryStream(data, sizeof data);
  Seek(s.Get(), 1, STREAM_SEEK_SET);
  ComPtr<IStream> clone;
  ASSERT_EQ(S_OK, s->Clone(clone.ReleaseAndGetAddressOf()));
  EXPECT_EQ(1u, Seek(clone.Get(), 0, STREAM_SEEK_CUR));
  ComPtr<IStream> dest = zemo::CreateMemoryStream();
  ULARGE_INTEGER read{}, written{};
  ASSERT_EQ(S_OK, clone->CopyTo(dest.Get(), ULARGE_INTEGER{100}, &read, &written));
  EXPECT_EQ(3u, read.QuadPart);
  EXPECT_EQ(3u, written.QuadPart);
  EXPECT_EQ((std::vector<uint8_t>{20, 30, 40}), zemo::MemoryStreamBytes(dest.Get()));
}

TEST(ReadOnlyStream, ReadsInPlaceAndRefusesWrites) {
  const uint8_t data[] = {1, 2, 3, 4, 5};
  ComPtr<IStream> s = zemo::CreateReadOnlyStream(data, sizeof data);
  CheckEdges(s.Get(), sizeof data);
  ULONG put = 7;
  EXPECT_EQ(STG_E_ACCESSDENIED, s->Write(data, 1, &put));
  EXPECT_EQ(0u, put);
}

TEST(FileStream, EdgesAndErrors) {
  auto path = std::filesystem::temp_directory_path() / ("zemo_stream_" + std::to_string(getpid()));
  {
    ComPtr<IStream> w;
    ASSERT_EQ(S_OK, zemo::CreateFileStream(path.string(), "w", w.ReleaseAndGetAddressOf()));
    const uint8_t data[] = {1, 2, 3, 4, 5, 6, 7};
    ASSERT_EQ(S_OK, w->Write(data, sizeof data, nullptr));
  }
  ComPtr<IStream> r;
  ASSERT_EQ(S_OK, zemo::CreateFileStream(path.string(), "r", r.ReleaseAndGetAddressOf()));
  CheckEdges(r.Get(), 7);
  r = nullptr;
  std::filesystem::remove(path);

  ComPtr<IStream> missing;
  EXPECT_EQ(HRESULT_FROM_WIN32(2), zemo::CreateFileStream(path.string(), "r", missing.ReleaseAndGetAddressOf()));
  EXPECT_EQ(nullptr, missing.Get());
}

}  // namespace
