// Operations that many classes share by the same rules, checked on every
// class the module serves.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "frame/class_table.h"
#include "frame/engine_interfaces.h"
#include "frame/persist_interfaces.h"
#include "platform/object.h"

namespace {

using zemo::ComPtr;

constexpr HRESULT kPathFailure = static_cast<HRESULT>(0x80047011);

// A path whose next step can't be taken.
class BrokenPath final : public zemo::Object<BrokenPath, ISelectParams> {
 public:
  HRESULT AddItem(BSTR, IPropertyBag*) override { return E_NOTIMPL; }
  HRESULT GetCount(LONG* count) override {
    *count = 1;
    return S_OK;
  }
  HRESULT NextItem(BSTR*, IPropertyBag**) override { return kPathFailure; }
  HRESULT Rewind() override { return E_NOTIMPL; }
};

// The classes whose stream size grows with what they have seen.
const std::set<std::u16string> kSizeUnknown = {u"ConversationStats", u"EntityTable", u"NodeStats",
                                               u"ProtocolStats",     u"ProtocolStatsByID", u"StatsContext",
                                               u"TupleTable"};

TEST(SharedOperations, SelectionAndStreamSizeFollowTheCommonRules) {
  auto path = BrokenPath::Create();
  for (const zemo::ClassInfo& row : zemo::ClassTable()) {
    if (!row.create) continue;
    SCOPED_TRACE(zemo::ToUtf8(row.name));
    ComPtr<IUnknown> object;
    ASSERT_EQ(S_OK, row.create(nullptr, IUnknown::iid, object.OutVoid()));

    ComPtr<ISelectableObject> selectable;
    if (SUCCEEDED(object.As(&selectable))) {
      EXPECT_EQ(E_POINTER, selectable->GetSelectParams(nullptr));
      // A path that fails is that failure, inside the boundary.
      ComPtr<IUnknown> out;
      EXPECT_EQ(kPathFailure, selectable->Select(path.Get(), out.ReleaseAndGetAddressOf()));
      EXPECT_EQ(nullptr, out.Get());
    }

    ComPtr<IPersistStream> stream;
    if (SUCCEEDED(object.As(&stream))) {
      ULARGE_INTEGER size{};
      EXPECT_EQ(kSizeUnknown.count(row.name) ? E_NOTIMPL : S_OK, stream->GetSizeMax(&size));
    }
  }
}

}  // namespace
