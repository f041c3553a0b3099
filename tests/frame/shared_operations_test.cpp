// Operations that many classes share by the same rules, checked on every
// class the module serves.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "engine/select_params.h"
#include "frame/class_table.h"
#include "frame/engine_interfaces.h"
#include "frame/module.h"
#include "frame/persist_interfaces.h"
#include "platform/class_store.h"
#include "platform/object.h"
#include "platform/stream.h"
#include "frame/xml_persist.h"

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

// The classes whose stream size grows with what they have seen, and the
// alarm collection, whose stream is a document.
const std::set<std::u16string> kSizeUnknown = {
    u"AlarmCollection",      u"ConversationStats", u"EntityTable",      u"NodeStats",    u"NodeStatsHierarchy",
    u"ProtocolStats",        u"ProtocolStatsByID", u"RollingNodeStats", u"StatsContext", u"SummaryStats",
    u"SummaryStatsSnapshot", u"TupleTable",        u"WirelessChannelStats", u"WirelessChannelStats2",
    u"WirelessNodeAssociationTable", u"WirelessNodeStats", u"WirelessNodeStats2"};

// Classes that answer a null argument of their persistence otherwise, for
// now: the second-generation wireless statistics give E_UNEXPECTED for a
// null stream and take a null time; the identity tables load XML without a
// document; the collection gives E_INVALIDARG. An entry goes once its class
// answers E_POINTER.
const std::set<std::u16string> kOtherNullAnswers = {u"EntityTable", u"TupleTable", u"WirelessChannelStats2",
                                                    u"WirelessNodeStats2", u"ZemoStatsContextCollection"};

TEST(SharedOperations, SelectionPersistenceAndNullArgumentsFollowTheCommonRules) {
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
    // Every persistence interface names the class itself: a save is loaded
    // by creating that class.
    auto expectOwnClass = [&](auto* persist, const char* which) {
      if (!persist) return;
      CLSID clsid{};
      EXPECT_EQ(S_OK, persist->GetClassID(&clsid)) << which;
      EXPECT_EQ(row.clsid, clsid) << which;
    };
    ComPtr<IPersistXml> xml;
    ComPtr<IPersistFile> file;
    object.As(&xml);
    object.As(&file);
    expectOwnClass(stream.Get(), "stream");
    expectOwnClass(xml.Get(), "XML");
    expectOwnClass(file.Get(), "file");

    // A missing stream, document, time or name is E_POINTER before anything is read or written.
    if (kOtherNullAnswers.count(row.name)) continue;
    auto document = zemo::CreateXmlDocument();
    auto memory = zemo::CreateMemoryStream();
    ZemoTime since = 0;
    if (stream) {
      EXPECT_EQ(E_POINTER, stream->Load(nullptr));
      EXPECT_EQ(E_POINTER, stream->Save(nullptr, TRUE));
    }
    ComPtr<ISaveStreamDeltas> deltas;
    if (SUCCEEDED(object.As(&deltas))) {
      EXPECT_EQ(E_POINTER, deltas->SaveDeltas(nullptr, &since));
      EXPECT_EQ(E_POINTER, deltas->SaveDeltas(memory.Get(), nullptr));
    }
    if (xml) {
      EXPECT_EQ(E_POINTER, xml->Load(nullptr, document.Get()));
      EXPECT_EQ(E_POINTER, xml->Load(document.Get(), nullptr));
      EXPECT_EQ(E_POINTER, xml->Save(nullptr, document.Get(), TRUE));
    }
    ComPtr<IPersistXmlDeltas> xmlDeltas;
    if (SUCCEEDED(object.As(&xmlDeltas))) {
      EXPECT_EQ(E_POINTER, xmlDeltas->SaveDeltas(document.Get(), nullptr, &since));
      EXPECT_EQ(E_POINTER, xmlDeltas->SaveDeltas(document.Get(), document.Get(), nullptr));
    }
    if (file) {
      EXPECT_EQ(E_POINTER, file->Save(nullptr, TRUE));
    }
  }
}

// The objects without children, by class: their selection name and flag,
// what a path with a step too many gives, and what an empty path given as
// null gives. The identity tables have no result table.
struct Leaf {
  const char16_t* cls;
  const char16_t* name;
  ULONG flag;
  HRESULT deeper = E_NOTIMPL;
  HRESULT nullPath = E_POINTER;
  bool hasTable = true;
};
const Leaf kLeaves[] = {{u"ConversationStats", u"conversationstats", 0}, {u"ErrorStats", u"errorstats", 0},
                        {u"NetworkStats", u"networkstats", 1},           {u"NodeStats", u"nodestats", 0},
                        {u"NodeStatsHierarchy", u"nodestatshierarchy", 0}, {u"ProtocolStats", u"protocolstats", 0},
                        {u"ProtocolStatsByID", u"protocolidstats", 0},   {u"RollingNodeStats", u"rollingnodestats", 0},
                        {u"SizeStats", u"sizestats", 1},
                        {u"EntityTable", u"entitytable", 0, E_INVALIDARG, E_POINTER, false},
                        {u"TupleTable", u"tupletable", 0, E_INVALIDARG, S_OK, false}};

TEST(SharedOperations, LeafStatisticsEndEveryPathAtThemselves) {
  ASSERT_EQ(S_OK, DllRegisterServer());
  for (const Leaf& leaf : kLeaves) {
    SCOPED_TRACE(zemo::ToUtf8(leaf.cls));
    CLSID clsid;
    ASSERT_EQ(S_OK, CLSIDFromProgID((u"ZemoStats." + std::u16string(leaf.cls)).c_str(), &clsid));
    ComPtr<ISelectableObject> stats;
    ASSERT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_ALL, ISelectableObject::iid, stats.OutVoid()));
    zemo::CBstr name;
    ULONG flag = 9;
    ASSERT_EQ(S_OK, stats->GetSelectName(name.Out()));
    EXPECT_EQ(leaf.name, name.View());
    ASSERT_EQ(S_OK, stats->GetSelectFlag(&flag));
    EXPECT_EQ(leaf.flag, flag);
    ComPtr<ISelectParams> params;
    EXPECT_EQ(E_NOTIMPL, stats->GetSelectParams(params.ReleaseAndGetAddressOf()));

    auto path = zemo::MakeObject<zemo::SelectParams, ISelectParams>();
    ComPtr<IUnknown> out, self;
    ASSERT_EQ(S_OK, stats->Select(path.Get(), out.ReleaseAndGetAddressOf()));
    ASSERT_EQ(S_OK, stats->QueryInterface(IUnknown::iid, self.OutVoid()));
    EXPECT_EQ(self.Get(), out.Get());
    ASSERT_EQ(S_OK, path->AddItem(zemo::CBstr(u"deeper").Get(), nullptr));
    EXPECT_EQ(leaf.deeper, stats->Select(path.Get(), out.ReleaseAndGetAddressOf()));
    EXPECT_FALSE(out);
    EXPECT_EQ(leaf.nullPath, stats->Select(nullptr, out.ReleaseAndGetAddressOf()));
    EXPECT_EQ(leaf.nullPath == S_OK ? self.Get() : nullptr, out.Get());
    EXPECT_EQ(E_POINTER, stats->Select(path.Get(), nullptr));
    EXPECT_EQ(E_POINTER, stats->GetTable(nullptr));
    if (!leaf.hasTable) {
      ComPtr<IDataTable> table;
      EXPECT_EQ(E_NOTIMPL, stats->GetTable(table.ReleaseAndGetAddressOf()));
    }
  }
}

}  // namespace
