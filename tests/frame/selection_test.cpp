#include <gtest/gtest.h>

#include <vector>

#include "engine/engine.h"
#include "engine/data_table.h"
#include "engine/select_params.h"
#include "frame/selection.h"
#include "platform/object.h"

namespace {

using zemo::CBstr;
using zemo::ComPtr;
using zemo::CVariant;

// A node of a selection tree, walking its path with the shared helpers.
class Node final : public zemo::Object<Node, ISelectableObject> {
 public:
  explicit Node(std::u16string name, HRESULT nameResult = S_OK) : m_name(std::move(name)), m_nameResult(nameResult) {}
  std::vector<ComPtr<IUnknown>> children;
  int selects = 0;

  HRESULT GetSelectName(BSTR* out) override {
    if (FAILED(m_nameResult)) return m_nameResult;
    *out = zemo::AllocBstr(m_name);
    return S_OK;
  }
  HRESULT GetSelectFlag(ULONG* flag) override { return E_NOTIMPL; }
  HRESULT GetSelectParams(ISelectParams**) override { return E_NOTIMPL; }
  HRESULT Select(ISelectParams* params, IUnknown** out) override {
    return Locked([&]() -> HRESULT {
      zemo::CheckOut(out);
      ++selects;
      CBstr step;
      ComPtr<IPropertyBag> bag;
      if (CheckHr(params->NextItem(step.Out(), bag.ReleaseAndGetAddressOf())) == S_FALSE)
        return GetUnknown()->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
      for (auto& child : children) {
        HRESULT hr = zemo::SelectChild(child.Get(), step.View(), params, out);
        if (hr != zemo::kSelectNotMine) return hr;
      }
      return E_INVALIDARG;
    });
  }
  HRESULT GetTable(IDataTable**) override { return E_NOTIMPL; }

 private:
  std::u16string m_name;
  HRESULT m_nameResult;
};

class Plain final : public zemo::Object<Plain, IPersist> {
 public:
  HRESULT GetClassID(CLSID*) override { return E_NOTIMPL; }
};

ComPtr<ISelectParams> Path(std::initializer_list<const char16_t*> steps) {
  auto p = zemo::MakeObject<zemo::SelectParams, ISelectParams>();
  for (auto s : steps) EXPECT_EQ(S_OK, p->AddItem(CBstr(std::u16string_view(s)).Get(), nullptr));
  return p;
}

TEST(Selection, NamesOfAnyObject) {
  EXPECT_EQ(u"NULL", zemo::GetSelectableName(nullptr));
  EXPECT_EQ(u"", zemo::GetSelectableName(Plain::Create()->GetUnknown()));
  EXPECT_EQ(u"error", zemo::GetSelectableName(Node::Create(u"x", E_FAIL)->GetUnknown()));
  EXPECT_EQ(u"nodestats", zemo::GetSelectableName(Node::Create(u"nodestats")->GetUnknown()));
}

TEST(Selection, AStepGoesToTheChildOfThatNameWhateverItsCase) {
  auto root = Node::Create(u"context");
  auto plain = Plain::Create();
  auto broken = Node::Create(u"sizestats", E_FAIL);
  auto nodes = Node::Create(u"nodestats");
  auto leaf = Node::Create(u"detail");
  nodes->children.push_back(leaf->GetUnknown());
  root->children = {nullptr, plain->GetUnknown(), broken->GetUnknown(), nodes->GetUnknown()};

  ComPtr<IUnknown> out;
  EXPECT_EQ(S_OK, root->Select(Path({u"NodeStats", u"DETAIL"}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(leaf->GetUnknown(), out.Get());
  EXPECT_EQ(1, nodes->selects);
  EXPECT_EQ(0, broken->selects);

  // The helper answers "not mine" for each kind of other child.
  auto params = Path({u"nodestats"});
  for (IUnknown* other : {static_cast<IUnknown*>(nullptr), plain->GetUnknown(), broken->GetUnknown(),
                          leaf->GetUnknown()})
    EXPECT_EQ(zemo::kSelectNotMine, zemo::SelectChild(other, u"nodestats", params.Get(), out.ReleaseAndGetAddressOf()));
  // A child's own failure is its answer.
  EXPECT_EQ(E_INVALIDARG, root->Select(Path({u"nodestats", u"nothing"}).Get(), out.ReleaseAndGetAddressOf()));
  EXPECT_EQ(nullptr, out.Get());
}

TEST(Selection, AFoundObjectEndsThePathOrWalksOn) {
  auto target = Node::Create(u"protocolstats");
  auto leaf = Node::Create(u"leaf");
  target->children.push_back(leaf->GetUnknown());
  ULONG refs = target->RefCountForTesting();

  IUnknown* out = nullptr;
  EXPECT_EQ(S_OK, zemo::SelectFound(Path({}).Get(), target->GetUnknown(), &out));
  EXPECT_EQ(target->GetUnknown(), out);
  EXPECT_EQ(refs + 1, target->RefCountForTesting());
  out->Release();
  EXPECT_EQ(S_OK, zemo::SelectFound(nullptr, target->GetUnknown(), &out));
  EXPECT_EQ(target->GetUnknown(), out);
  out->Release();

  EXPECT_EQ(S_OK, zemo::SelectFound(Path({u"leaf"}).Get(), target->GetUnknown(), &out));
  EXPECT_EQ(leaf->GetUnknown(), out);
  out->Release();
  EXPECT_EQ(E_INVALIDARG, zemo::SelectFound(Path({u"leaf"}).Get(), Plain::Create()->GetUnknown(), &out));
  EXPECT_EQ(nullptr, out);
  EXPECT_EQ(E_POINTER, zemo::SelectFound(nullptr, target->GetUnknown(), nullptr));
}

class MakeTableTest : public testing::Test {
 protected:
  static std::vector<std::pair<std::u16string, VARTYPE>> Columns(IDataTable* table) {
    ComPtr<IDataColumns> cols;
    EXPECT_EQ(S_OK, table->GetColumns(cols.ReleaseAndGetAddressOf()));
    LONG n = 0;
    EXPECT_EQ(S_OK, cols->GetCount(&n));
    std::vector<std::pair<std::u16string, VARTYPE>> out;
    for (LONG i = 0; i < n; ++i) {
      CBstr name;
      VARTYPE type = 0;
      EXPECT_EQ(S_OK, cols->GetName(i, name.Out()));
      EXPECT_EQ(S_OK, cols->GetType(i, &type));
      out.emplace_back(name.View(), type);
    }
    return out;
  }
  static CVariant Cell(IDataTable* table, LONG row, LONG column) {
    ComPtr<IDataRows> rows;
    ComPtr<IDataRow> r;
    CVariant v;
    EXPECT_EQ(S_OK, table->GetRows(rows.ReleaseAndGetAddressOf()));
    EXPECT_EQ(S_OK, rows->GetRow(row, r.ReleaseAndGetAddressOf()));
    EXPECT_EQ(S_OK, r->GetValue(column, v.Out()));
    return v;
  }
};

constexpr zemo::TableColumn kColumns[] = {{u"Name", VT_BSTR}, {u"Packets", VT_UI8}, {u"Index", VT_UI4}};

TEST_F(MakeTableTest, CreatesATableByProgramIdentifierWithTheColumnsInOrder) {
  IDataTable* table = nullptr;
  zemo::MakeTable(&table, kColumns);
  ASSERT_NE(nullptr, table);
  EXPECT_EQ((std::vector<std::pair<std::u16string, VARTYPE>>{{u"Name", VT_BSTR}, {u"Packets", VT_UI8}, {u"Index", VT_UI4}}), Columns(table));
  // The caller's reference and no other.
  EXPECT_EQ(1u, static_cast<zemo::DataTable*>(table)->RefCountForTesting());

  // A table that is already there gets the columns; it is not replaced.
  IDataTable* before = table;
  zemo::MakeTable(&table, std::span(kColumns, 1));
  EXPECT_EQ(before, table);
  EXPECT_EQ(4u, Columns(table).size());
  EXPECT_EQ(1u, static_cast<zemo::DataTable*>(table)->RefCountForTesting());
  table->Release();

  EXPECT_EQ(E_POINTER, zemo::Boundary([] { zemo::MakeTable(nullptr, kColumns); }));
}

TEST_F(MakeTableTest, RowsGetTheirCellsByColumnIndex) {
  IDataTable* table = nullptr;
  zemo::MakeTable(&table, kColumns);
  {
    zemo::TableRows rows(table);
    rows.Add({CVariant::Str(u"a"), CVariant::UI8(1ull << 40), CVariant::UI4(3)});
    rows.Add({CVariant(), CVariant::UI8(5)});  // an empty value leaves its cell unset
    ComPtr<IDataRow> row = rows.NewRow();
    zemo::TableRows::SetCell(row.Get(), 2, CVariant::UI4(9));
    // A column the table lacks is the table's failure, raised.
    EXPECT_TRUE(FAILED(zemo::Boundary([&] { zemo::TableRows::SetCell(row.Get(), 3, CVariant::UI4(1)); })));
  }
  EXPECT_EQ(u"a", std::u16string(Cell(table, 0, 0).bstrVal));
  EXPECT_EQ(1ull << 40, Cell(table, 0, 1).ullVal);
  EXPECT_EQ(3u, Cell(table, 0, 2).ulVal);
  EXPECT_EQ(VT_EMPTY, Cell(table, 1, 0).vt);
  EXPECT_EQ(5u, Cell(table, 1, 1).ullVal);
  EXPECT_EQ(VT_EMPTY, Cell(table, 2, 0).vt);
  EXPECT_EQ(9u, Cell(table, 2, 2).ulVal);
  table->Release();
}

}  // namespace
