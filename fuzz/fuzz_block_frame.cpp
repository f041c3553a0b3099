// Arbitrary bytes as a stream of nested block frames with tags and checked
// counts, read through an object's Load so that every malformation must come
// out as a status. What was read is written again and must read back the same.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "frame/block_frame.h"
#include "platform/object.h"

namespace {

constexpr uint32_t kOuterTag = 0x5A424C4B;
constexpr uint32_t kItemTag = 0x4954454D;
constexpr int kMaxDepth = 4;

struct Item {
  uint16_t kind = 0;
  uint64_t value = 0;
  std::vector<uint32_t> words;
  std::vector<Item> children;
  bool operator==(const Item&) const = default;
};

Item ReadItem(IStream* s, int depth) {
  Item item;
  zemo::ReadBlock(s, [&] {
    item.kind = zemo::ReadValue<uint16_t>(s) % 4;
    switch (item.kind) {
      case 0:
        zemo::ReadSyncTag(s, kItemTag);
        item.value = zemo::ReadValue<uint64_t>(s);
        break;
      case 1:
        item.words.resize(zemo::ReadRanged<uint32_t>(s, 1, 8));
        zemo::ReadRecords(s, std::span<uint32_t>(item.words));
        break;
      case 2:
        if (depth < kMaxDepth) {
          uint16_t n = zemo::ReadRanged<uint16_t>(s, 0, 8);
          for (uint16_t i = 0; i < n; ++i) item.children.push_back(ReadItem(s, depth + 1));
        }
        break;
      default:
        break;  // an item this reader doesn't know: the frame skips it
    }
  });
  return item;
}

void WriteItem(IStream* s, const Item& item, int depth) {
  zemo::WriteBlock(s, [&] {
    zemo::WriteValue(s, item.kind);
    switch (item.kind) {
      case 0:
        zemo::WriteSyncTag(s, kItemTag);
        zemo::WriteValue(s, item.value);
        break;
      case 1:
        zemo::WriteValue(s, static_cast<uint32_t>(item.words.size()));
        zemo::WriteRecords(s, std::span<const uint32_t>(item.words));
        break;
      case 2:
        if (depth < kMaxDepth) {
          zemo::WriteValue(s, static_cast<uint16_t>(item.children.size()));
          for (const Item& c : item.children) WriteItem(s, c, depth + 1);
        }
        break;
      default:
        break;
    }
  });
}

class Framed final : public zemo::Object<Framed, IPersistStream> {
 public:
  std::vector<Item> items;

  HRESULT GetClassID(CLSID*) override { return E_NOTIMPL; }
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* s) override {
    return Locked([&] {
      items.clear();
      zemo::ReadBlock(s, [&] {
        zemo::ReadSyncTag(s, kOuterTag);
        uint32_t n = zemo::ReadRanged<uint32_t>(s, 0, 32);
        for (uint32_t i = 0; i < n; ++i) items.push_back(ReadItem(s, 1));
      });
    });
  }
  HRESULT Save(IStream* s, BOOL) override {
    return Locked([&] {
      zemo::WriteBlock(s, [&] {
        zemo::WriteSyncTag(s, kOuterTag);
        zemo::WriteValue(s, static_cast<uint32_t>(items.size()));
        for (const Item& item : items) WriteItem(s, item, 1);
      });
    });
  }
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zemo::ComPtr<IStream> in = zemo::CreateReadOnlyStream(data, size);
  auto first = Framed::Create();
  HRESULT hr = first->Load(in.Get());
  if (hr != S_OK && hr != E_FAIL && hr != E_UNEXPECTED) std::abort();
  if (hr != S_OK) return 0;

  zemo::ComPtr<IStream> out = zemo::CreateMemoryStream();
  if (first->Save(out.Get(), TRUE) != S_OK) std::abort();
  // The block the writer made ends where the writer stopped.
  std::vector<uint8_t> bytes = zemo::MemoryStreamBytes(out.Get());
  uint64_t length = 0;
  if (bytes.size() < 8) std::abort();
  std::memcpy(&length, bytes.data(), 8);
  if (length != bytes.size()) std::abort();
  zemo::StreamSeekTo(out.Get(), 0);
  auto second = Framed::Create();
  if (second->Load(out.Get()) != S_OK || second->items != first->items) std::abort();
  return 0;
}
