#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "frame/block_frame.h"
#include "platform/object.h"

namespace {

using zemo::ComPtr;

template <class T>
T At(const std::vector<uint8_t>& bytes, size_t offset) {
  T v;
  std::memcpy(&v, bytes.data() + offset, sizeof v);
  return v;
}

// What a standard exception from the frame says.
template <class F>
std::string Message(F&& f) {
  try {
    f();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "no exception";
}

TEST(BlockFrame, TheLengthCountsTheWholeBlockAndNestedBlocksAddUp) {
  ComPtr<IStream> s = zemo::CreateMemoryStream();
  zemo::WriteValue(s.Get(), uint8_t{0xEE});  // the block need not start at 0
  const std::vector<uint8_t> content(100, 0x42);
  zemo::WriteBlock(s.Get(), [&] { zemo::WriteBytes(s.Get(), content.data(), content.size()); });
  EXPECT_EQ(1u + 108, zemo::StreamPosition(s.Get()));

  zemo::WriteBlock(s.Get(), [&] {
    zemo::WriteSyncTag(s.Get(), 0xA1A2A3A4);
    zemo::WriteBlock(s.Get(), [&] { zemo::WriteValue(s.Get(), uint32_t{7}); });
    zemo::WriteBlock(s.Get(), [] {});
  });

  std::vector<uint8_t> bytes = zemo::MemoryStreamBytes(s.Get());
  ASSERT_EQ(1u + 108 + 8 + 4 + 12 + 8, bytes.size());
  EXPECT_EQ(0xEE, bytes[0]);
  EXPECT_EQ(108u, At<uint64_t>(bytes, 1));
  EXPECT_EQ(0x42, bytes[9]);
  EXPECT_EQ(0x42, bytes[108]);
  EXPECT_EQ(8u + 4 + 12 + 8, At<uint64_t>(bytes, 109));
  EXPECT_EQ(0xA1A2A3A4u, At<uint32_t>(bytes, 117));
  EXPECT_EQ(12u, At<uint64_t>(bytes, 121));
  EXPECT_EQ(7u, At<uint32_t>(bytes, 129));
  EXPECT_EQ(8u, At<uint64_t>(bytes, 133));  // an empty block is its length alone
}

TEST(BlockFrame, AReaderStepsOverWhatItDoesNotTake) {
  ComPtr<IStream> s = zemo::CreateMemoryStream();
  zemo::WriteBlock(s.Get(), [&] {
    for (uint32_t i = 1; i <= 25; ++i) zemo::WriteValue(s.Get(), i);
  });
  zemo::WriteValue(s.Get(), uint32_t{0xFEEDFACE});
  zemo::StreamSeekTo(s.Get(), 0);

  // An older reader that knows only the first field.
  uint32_t first = 0;
  zemo::ReadBlock(s.Get(), [&] { first = zemo::ReadValue<uint32_t>(s.Get()); });
  EXPECT_EQ(1u, first);
  EXPECT_EQ(108u, zemo::StreamPosition(s.Get()));
  EXPECT_EQ(0xFEEDFACEu, zemo::ReadValue<uint32_t>(s.Get()));

  // A reader that takes more than the block claims is put back to its end.
  const uint8_t shortBlock[] = {12, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  ComPtr<IStream> t = zemo::CreateReadOnlyStream(shortBlock, sizeof shortBlock);
  zemo::BlockReader block(t.Get());
  EXPECT_EQ(12u, block.Length());
  zemo::ReadValue<uint64_t>(t.Get());
  block.End();
  EXPECT_EQ(12u, zemo::StreamPosition(t.Get()));
}

TEST(BlockFrame, ALengthThatWouldEndBelowZeroLeavesThePositionAlone) {
  std::vector<uint8_t> bytes(20, 0);
  bytes[0] = 0xAA;  // a byte before the block
  const uint64_t huge = 0xFFFFFFFFFFFFFFF0ull;  // start + length wraps to a negative i64
  std::memcpy(&bytes[1], &huge, 8);
  ComPtr<IStream> s = zemo::CreateReadOnlyStream(bytes.data(), bytes.size());
  zemo::StreamSeekTo(s.Get(), 1);
  zemo::ReadBlock(s.Get(), [&] { zemo::ReadValue<uint16_t>(s.Get()); });
  EXPECT_EQ(11u, zemo::StreamPosition(s.Get()));

  // A length far past the end is obeyed: the seek lands beyond the data.
  const uint64_t far = 1000;
  std::memcpy(&bytes[1], &far, 8);
  zemo::StreamSeekTo(s.Get(), 1);
  zemo::ReadBlock(s.Get(), [] {});
  EXPECT_EQ(1001u, zemo::StreamPosition(s.Get()));
}

TEST(BlockFrame, TagsAndCountsAreCheckedAtOnce) {
  ComPtr<IStream> s = zemo::CreateMemoryStream();
  zemo::WriteSyncTag(s.Get(), 0x5441475F);
  zemo::WriteValue(s.Get(), uint32_t{10});
  zemo::WriteValue(s.Get(), uint32_t{0});
  zemo::WriteValue(s.Get(), uint32_t{11});
  zemo::WriteValue(s.Get(), int16_t{-3});
  zemo::StreamSeekTo(s.Get(), 0);

  EXPECT_EQ("!( inSyncTag == nTag )", Message([&] { zemo::ReadSyncTag(s.Get(), 0x5441475E); }));
  zemo::StreamSeekTo(s.Get(), 0);
  EXPECT_EQ("no exception", Message([&] { zemo::ReadSyncTag(s.Get(), 0x5441475F); }));

  // Both ends of the range are allowed.
  EXPECT_EQ(10u, zemo::ReadRanged<uint32_t>(s.Get(), 1, 10));
  EXPECT_EQ("inVal < static_cast< T >( inMin )", Message([&] { zemo::ReadRanged<uint32_t>(s.Get(), 1, 10); }));
  EXPECT_EQ("static_cast< T >( inMax ) < inVal", Message([&] { zemo::ReadRanged<uint32_t>(s.Get(), 1, 10); }));
  // The bounds are taken in the count's own type.
  EXPECT_EQ(-3, zemo::ReadRanged<int16_t>(s.Get(), -3, 0));
  EXPECT_EQ(0u, zemo::CheckRange<uint8_t>(0, 0, 255));

  for (auto f : {+[] { zemo::BlockWriter w(nullptr); }, +[] { zemo::BlockReader r(nullptr); },
                 +[] { zemo::ReadSyncTag(nullptr, 1); }, +[] { zemo::WriteSyncTag(nullptr, 1); },
                 +[] { zemo::ReadRanged<uint32_t>(nullptr, 0, 1); }})
    EXPECT_EQ("null pointer ioStream", Message(f));
}

// A second-generation style object: its stream is one block with a tag and
// a counted list. Malformed input must come out of Load as a status.
class FramedThing final : public zemo::Object<FramedThing, IPersistStream> {
 public:
  static constexpr uint32_t kTag = 0x46524D31;
  std::vector<uint16_t> items;

  HRESULT GetClassID(CLSID*) override { return E_NOTIMPL; }
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* s) override {
    return Locked([&] {
      zemo::ReadBlock(s, [&] {
        zemo::ReadSyncTag(s, kTag);
        items.resize(zemo::ReadRanged<uint32_t>(s, 0, 16));
        for (uint16_t& v : items) zemo::ReadValue(s, v);
      });
    });
  }
  HRESULT Save(IStream* s, BOOL) override {
    return Locked([&] {
      zemo::WriteBlock(s, [&] {
        zemo::WriteSyncTag(s, kTag);
        zemo::WriteValue(s, static_cast<uint32_t>(items.size()));
        for (uint16_t v : items) zemo::WriteValue(s, v);
      });
    });
  }
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
};

std::vector<uint8_t> Frame(uint32_t tag, uint32_t count, size_t itemBytes) {
  std::vector<uint8_t> b(8 + 4 + 4 + itemBytes, 0x01);
  uint64_t length = b.size();
  std::memcpy(&b[0], &length, 8);
  std::memcpy(&b[8], &tag, 4);
  std::memcpy(&b[12], &count, 4);
  return b;
}

TEST(BlockFrame, MalformedStreamsComeOutAtTheInterfaceAsStatuses) {
  auto thing = FramedThing::Create();
  thing->items = {5, 6, 7};
  ComPtr<IStream> s = zemo::CreateMemoryStream();
  ASSERT_EQ(S_OK, thing->Save(s.Get(), TRUE));
  auto copy = FramedThing::Create();
  zemo::StreamSeekTo(s.Get(), 0);
  ASSERT_EQ(S_OK, copy->Load(s.Get()));
  EXPECT_EQ(thing->items, copy->items);

  auto load = [&](const std::vector<uint8_t>& bytes) {
    ComPtr<IStream> in = zemo::CreateReadOnlyStream(bytes.data(), bytes.size());
    return copy->Load(in.Get());
  };
  EXPECT_EQ(E_UNEXPECTED, load(Frame(FramedThing::kTag + 1, 1, 2)));
  EXPECT_EQ(E_UNEXPECTED, load(Frame(FramedThing::kTag, 17, 34)));
  EXPECT_EQ(S_OK, load(Frame(FramedThing::kTag, 16, 32)));
  // A stream that ends inside the block is a short read.
  EXPECT_EQ(E_FAIL, load(Frame(FramedThing::kTag, 4, 6)));
  EXPECT_EQ(E_UNEXPECTED, copy->Load(nullptr));
}

}  // namespace
