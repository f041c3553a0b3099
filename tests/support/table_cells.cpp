#include "support/table_cells.h"

#include <gtest/gtest.h>

#include "frame/xml_persist.h"
#include "platform/strings.h"

namespace zemo::testing_support {

std::u16string TableCells::Text(size_t row, size_t column) const {
  if (row >= rows.size() || column >= rows[row].size()) {
    ADD_FAILURE() << "no cell " << row << ", " << column;
    return {};
  }
  return XmlText(rows[row][column]);
}

TableCells ReadTable(IDataTable* table) {
  TableCells out;
  ComPtr<IDataColumns> columns;
  ComPtr<IDataRows> rows;
  LONG columnCount = 0, rowCount = 0;
  if (!table || table->GetColumns(columns.ReleaseAndGetAddressOf()) != S_OK || columns->GetCount(&columnCount) != S_OK ||
      table->GetRows(rows.ReleaseAndGetAddressOf()) != S_OK || rows->GetCount(&rowCount) != S_OK) {
    ADD_FAILURE() << "the table cannot be read";
    return out;
  }
  for (LONG c = 0; c < columnCount; ++c) {
    CBstr name;
    VARTYPE type = VT_EMPTY;
    EXPECT_EQ(S_OK, columns->GetName(c, name.Out()));
    EXPECT_EQ(S_OK, columns->GetType(c, &type));
    out.names.emplace_back(name.View());
    out.types.push_back(type);
  }
  for (LONG r = 0; r < rowCount; ++r) {
    ComPtr<IDataRow> row;
    if (rows->GetRow(r, row.ReleaseAndGetAddressOf()) != S_OK) {
      ADD_FAILURE() << "row " << r << " cannot be read";
      break;
    }
    auto& cells = out.rows.emplace_back(size_t(columnCount));
    for (LONG c = 0; c < columnCount; ++c) EXPECT_EQ(S_OK, row->GetValue(c, cells[size_t(c)].Out()));
  }
  return out;
}

TableCells ReadTable(ISelectableObject* object) {
  ComPtr<IDataTable> table;
  EXPECT_EQ(S_OK, object->GetTable(table.ReleaseAndGetAddressOf()));
  return ReadTable(table.Get());
}

}  // namespace zemo::testing_support
