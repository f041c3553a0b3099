#include "engine/data_table.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using zemo::CBstr;
using zemo::ComPtr;
using zemo::CVariant;

struct Table {
  ComPtr<IDataTable> table = zemo::MakeObject<zemo::DataTable, IDataTable>();
  ComPtr<IDataColumns> columns;
  ComPtr<IDataRows> rows;
  // Columns Name (text) and Packets (u64).
  Table() {
    CheckHr(table->GetColumns(columns.ReleaseAndGetAddressOf()));
    CheckHr(table->GetRows(rows.ReleaseAndGetAddressOf()));
    CheckHr(columns->AddColumn(CBstr(u"Name").Get(), VT_BSTR, 0));
    CheckHr(columns->AddColumn(CBstr(u"Packets").Get(), VT_UI8, 0));
  }
  ComPtr<IDataRow> AddRow() {
    ComPtr<IDataRow> row;
    CheckHr(rows->AddRow(row.ReleaseAndGetAddressOf()));
    return row;
  }
};

CVariant Index(LONG i) { return CVariant::I4(i); }

TEST(EngineDataTable, RowsKeepTheirOrderAndReadBackByName) {
  Table t;
  for (uint64_t i = 0; i < 3; ++i) {
    CVariant name = CVariant::Str(i == 1 ? u"beta" : i == 0 ? u"alpha" : u"gamma");
    CVariant packets = CVariant::UI8(100 + i);
    auto row = t.AddRow();
    ASSERT_EQ(S_OK, row->SetValueByName(CBstr(u"name").Get(), &name));
    ASSERT_EQ(S_OK, row->SetValue(Index(1), &packets));
  }
  LONG count = 0;
  ASSERT_EQ(S_OK, t.rows->GetCount(&count));
  ASSERT_EQ(3, count);
  const char16_t* names[] = {u"alpha", u"beta", u"gamma"};
  for (LONG i = 0; i < 3; ++i) {
    ComPtr<IDataRow> row;
    ASSERT_EQ(S_OK, t.rows->GetRow(i, row.ReleaseAndGetAddressOf()));
    CVariant cells[2];
    ASSERT_EQ(S_OK, row->GetValues(2, cells));
    ASSERT_EQ(VT_BSTR, cells[0].vt);
    EXPECT_EQ(std::u16string(names[i]), cells[0].bstrVal);
    CVariant packets;
    ASSERT_EQ(S_OK, row->GetValueByName(CBstr(u"PACKETS").Get(), &packets));
    ASSERT_EQ(VT_UI8, packets.vt);
    EXPECT_EQ(100u + i, packets.ullVal);
  }
  ComPtr<IDataRow> none;
  EXPECT_EQ(E_INVALIDARG, t.rows->GetRow(3, none.ReleaseAndGetAddressOf()));

  // The reading side of the columns, as a host printing a header needs it.
  LONG index = 7;
  EXPECT_EQ(S_OK, t.columns->Find(CBstr(u"packets").Get(), &index));
  EXPECT_EQ(1, index);
  EXPECT_EQ(S_FALSE, t.columns->Find(CBstr(u"Bytes").Get(), &index));
  EXPECT_EQ(-1, index);
  CBstr name;
  ASSERT_EQ(S_OK, t.columns->GetName(1, name.Out()));
  EXPECT_EQ(u"Packets", name.View());
  VARTYPE type = 0;
  ASSERT_EQ(S_OK, t.columns->GetType(0, &type));
  EXPECT_EQ(VT_BSTR, type);
  EXPECT_EQ(E_INVALIDARG, t.columns->GetType(2, &type));
}

TEST(EngineDataTable, SetValueChecksTheIndexAndConvertsToTheColumnType) {
  Table t;
  auto row = t.AddRow();
  CVariant five = CVariant::I4(5);
  for (LONG bad : {-1, 2}) EXPECT_EQ(E_INVALIDARG, row->SetValue(Index(bad), &five));
  EXPECT_EQ(E_INVALIDARG, row->SetValue(CVariant::Str(u"1"), &five));
  EXPECT_EQ(E_INVALIDARG, row->SetValue(CVariant::I8(int64_t(1) << 33 | 1), &five));
  EXPECT_EQ(E_INVALIDARG, row->SetValueByName(CBstr(u"Bytes").Get(), &five));
  EXPECT_EQ(E_POINTER, row->SetValue(Index(1), nullptr));

  // Other integer types carry an index as well; the value takes the column's type.
  ASSERT_EQ(S_OK, row->SetValue(CVariant::UI2(1), &five));
  CVariant out;
  ASSERT_EQ(S_OK, row->GetValue(1, &out));
  EXPECT_EQ(VT_UI8, out.vt);
  EXPECT_EQ(5u, out.ullVal);
  CVariant number = CVariant::UI8(18446744073709551615u);
  ASSERT_EQ(S_OK, row->SetValue(Index(0), &number));
  ASSERT_EQ(S_OK, row->GetValue(0, out.Out()));
  ASSERT_EQ(VT_BSTR, out.vt);
  EXPECT_EQ(std::u16string(u"18446744073709551615"), out.bstrVal);

  // A failed conversion is returned and leaves the cell as it was.
  CVariant negative = CVariant::I4(-1);
  EXPECT_EQ(DISP_E_OVERFLOW, row->SetValue(Index(1), &negative));
  ASSERT_EQ(S_OK, row->GetValue(1, out.Out()));
  EXPECT_EQ(5u, out.ullVal);
}

TEST(EngineDataTable, CellsNeverSetReadEmptyIncludingLaterColumns) {
  Table t;
  auto row = t.AddRow();
  ASSERT_EQ(S_OK, t.columns->AddColumn(CBstr(u"Rate").Get(), VT_R8, 0));
  CVariant cells[3];
  ASSERT_EQ(S_OK, row->GetValues(3, cells));
  for (auto& c : cells) EXPECT_EQ(VT_EMPTY, c.vt);
  CVariant rate = CVariant::Str(u"2.5");
  ASSERT_EQ(S_OK, row->SetValue(Index(2), &rate));
  CVariant out;
  ASSERT_EQ(S_OK, row->GetValueByName(CBstr(u"rate").Get(), &out));
  ASSERT_EQ(VT_R8, out.vt);
  EXPECT_EQ(2.5, out.dblVal);
  // Asking for more cells than columns fails, with every slot still safe to clear.
  CVariant four[4];
  EXPECT_EQ(E_INVALIDARG, row->GetValues(4, four));
  for (auto& c : four) EXPECT_EQ(VT_EMPTY, c.vt);
  EXPECT_EQ(E_INVALIDARG, row->GetValue(3, out.Out()));
}

// Rows of texts that fill several pieces of text store (one of them longer
// than a piece), a null text, an object, and a column added when rows
// already stand: every row reads back its own values, whether it widens in
// place (the last row) or moves (one in the middle).
TEST(EngineDataTable, RowsKeepTheirOwnValuesAsTheyShareTextAndWiden) {
  Table t;
  constexpr LONG kRows = 7000;
  auto name = [](LONG i) {
    if (i == 5) return std::u16string(70000, u'x');
    return std::u16string(i % 3 == 0 ? u"alpha" : i % 3 == 1 ? u"beta" : u"") + u"#" + char16_t(u'0' + i % 7);
  };
  for (LONG i = 0; i < kRows; ++i) {
    auto row = t.AddRow();
    CVariant text = CVariant::Str(name(i)), packets = CVariant::UI8(uint64_t(i) * 1000);
    ASSERT_EQ(S_OK, row->SetValue(Index(0), &text));
    ASSERT_EQ(S_OK, row->SetValue(Index(1), &packets));
  }
  ASSERT_EQ(S_OK, t.columns->AddColumn(CBstr(u"Owner").Get(), VT_EMPTY, 0));
  ComPtr<IDataRow> middle, last;
  ASSERT_EQ(S_OK, t.rows->GetRow(7, middle.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, t.rows->GetRow(kRows - 1, last.ReleaseAndGetAddressOf()));
  ComPtr<IDataTable> other = zemo::MakeObject<zemo::DataTable, IDataTable>();
  CVariant object = CVariant::Unknown(other.Get()), nullText;
  nullText.vt = VT_BSTR;
  ASSERT_EQ(S_OK, middle->SetValue(Index(2), &object));
  ASSERT_EQ(S_OK, last->SetValue(Index(2), &nullText));
  for (LONG i = 0; i < kRows; ++i) {
    ComPtr<IDataRow> row;
    ASSERT_EQ(S_OK, t.rows->GetRow(i, row.ReleaseAndGetAddressOf()));
    CVariant cells[3];
    ASSERT_EQ(S_OK, row->GetValues(3, cells));
    ASSERT_EQ(VT_BSTR, cells[0].vt);
    EXPECT_EQ(name(i), std::u16string(cells[0].bstrVal)) << i;
    EXPECT_EQ(uint64_t(i) * 1000, cells[1].ullVal);
    if (i == 7) {
      ASSERT_EQ(VT_UNKNOWN, cells[2].vt);
      EXPECT_EQ(static_cast<IUnknown*>(other.Get()), cells[2].punkVal);
    } else if (i == kRows - 1) {
      ASSERT_EQ(VT_BSTR, cells[2].vt);
      EXPECT_EQ(nullptr, cells[2].bstrVal);
    } else {
      EXPECT_EQ(VT_EMPTY, cells[2].vt);
    }
  }
}

// A whole row in one call, as the statistics fill their tables: the same
// conversions as SetValue, and a row that cannot be made whole is not added.
TEST(EngineDataTable, AppendRowAddsWholeRowsOrNone) {
  Table t;
  ComPtr<IDataRowsAppend> append;
  ASSERT_EQ(S_OK, t.rows.As(&append));
  CVariant name = CVariant::Str(u"alpha"), five = CVariant::I4(5), negative = CVariant::I4(-1), empty;
  struct Case {
    std::vector<const VARIANT*> values;
    HRESULT expected;
  };
  const Case cases[] = {
      {{&name, &five}, S_OK},          // converted to the column's type
      {{nullptr, &five}, S_OK},        // a null value leaves its cell empty
      {{&empty}, S_OK},                // as do a missing one and VT_EMPTY
      {{&name, &negative}, DISP_E_OVERFLOW},
      {{&name, &five, &five}, E_INVALIDARG},
  };
  LONG rows = 0;
  for (const Case& c : cases) {
    EXPECT_EQ(c.expected, append->AppendRow(static_cast<LONG>(c.values.size()), c.values.data()));
    if (c.expected == S_OK) ++rows;
  }
  EXPECT_EQ(E_POINTER, append->AppendRow(1, nullptr));
  LONG count = 0;
  ASSERT_EQ(S_OK, t.rows->GetCount(&count));
  ASSERT_EQ(rows, count);
  const VARTYPE types[][2] = {{VT_BSTR, VT_UI8}, {VT_EMPTY, VT_UI8}, {VT_EMPTY, VT_EMPTY}};
  for (LONG i = 0; i < rows; ++i) {
    ComPtr<IDataRow> row;
    ASSERT_EQ(S_OK, t.rows->GetRow(i, row.ReleaseAndGetAddressOf()));
    CVariant cells[2];
    ASSERT_EQ(S_OK, row->GetValues(2, cells));
    for (int c = 0; c < 2; ++c) EXPECT_EQ(types[i][c], cells[c].vt) << i << "," << c;
    if (cells[1].vt == VT_UI8) {
      EXPECT_EQ(5u, cells[1].ullVal);
    }
  }
}

TEST(EngineDataTable, RowsAndColumnsOutliveTheTableWithoutLeaks) {
  LONG live = zemo::ModuleCount::Get();
  {
    ComPtr<IDataRow> row;
    ComPtr<IDataColumns> columns;
    {
      Table t;
      row = t.AddRow();
      columns = t.columns;
    }  // table and rows object released
    CVariant name = CVariant::Str(u"kept");
    ASSERT_EQ(S_OK, row->SetValueByName(CBstr(u"Name").Get(), &name));
    CVariant out;
    ASSERT_EQ(S_OK, row->GetValueByName(CBstr(u"Name").Get(), &out));
    EXPECT_EQ(std::u16string(u"kept"), out.bstrVal);
    LONG count = 0;
    ASSERT_EQ(S_OK, columns->GetCount(&count));
    EXPECT_EQ(2, count);
  }
  // Everything went: nothing refers back to its owner.
  EXPECT_EQ(live, zemo::ModuleCount::Get());
}

}  // namespace
