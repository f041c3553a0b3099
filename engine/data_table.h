// ZemoUtil.DataTable: the table of named, typed columns that the statistics
// fill for ISelectableObject::GetTable and that a host prints or serialises.
//
// References run one way: table -> columns, table -> rows -> each row ->
// columns. A row or the columns object a host holds stays usable after the
// table is gone, and nothing points back up, so there are no cycles.
#pragma once

#include <string>
#include <vector>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

namespace zemo {

class DataColumns final : public Object<DataColumns, IDataColumns> {
 public:
  HRESULT AddColumn(BSTR name, VARTYPE type, LONG reserved) override;
  HRESULT GetCount(LONG* count) override;
  HRESULT GetName(LONG index, BSTR* name) override;
  HRESULT GetType(LONG index, VARTYPE* type) override;
  HRESULT Find(BSTR name, LONG* index) override;

  // For the rows, each under this object's lock (taken after a row's).
  LONG Count() const;
  // -1 if no column has the name.
  LONG IndexOf(std::u16string_view name) const;
  // Raises E_INVALIDARG for an index out of range.
  VARTYPE TypeAt(LONG index) const;

 private:
  struct Column {
    std::u16string name;
    VARTYPE type;
  };
  std::vector<Column> m_columns;
};

class DataRow final : public Object<DataRow, IDataRow> {
 public:
  explicit DataRow(ComPtr<DataColumns> columns) : m_columns(std::move(columns)) {}
  HRESULT FinalConstruct();

  HRESULT SetValue(VARIANT column, VARIANT* value) override;
  HRESULT SetValueByName(BSTR column, VARIANT* value) override;
  HRESULT GetValue(LONG column, VARIANT* value) override;
  HRESULT GetValueByName(BSTR column, VARIANT* value) override;
  HRESULT GetValues(LONG count, VARIANT* values) override;

 private:
  void Store(LONG column, const VARIANT& value);
  void Load(LONG column, VARIANT* value) const;
  LONG IndexOfName(BSTR column) const;

  ComPtr<DataColumns> m_columns;
  // One cell per column, in column order; cells past the end (columns added
  // after the row) read as empty.
  std::vector<CVariant> m_cells;
};

class DataRows final : public Object<DataRows, IDataRows> {
 public:
  explicit DataRows(ComPtr<DataColumns> columns) : m_columns(std::move(columns)) {}

  HRESULT AddRow(IDataRow** out) override;
  HRESULT GetCount(LONG* count) override;
  HRESULT GetRow(LONG index, IDataRow** out) override;

 private:
  ComPtr<DataColumns> m_columns;
  std::vector<ComPtr<DataRow>> m_rows;
};

class DataTable final : public Object<DataTable, IDataTable> {
 public:
  HRESULT FinalConstruct();

  HRESULT GetColumns(IDataColumns** out) override;
  HRESULT GetRows(IDataRows** out) override;

 private:
  ComPtr<DataColumns> m_columns;
  ComPtr<DataRows> m_rows;
};

}  // namespace zemo
