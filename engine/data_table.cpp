#include "engine/data_table.h"

#include <algorithm>

namespace zemo {
namespace {

std::u16string_view ViewOf(BSTR text) {
  return text ? std::u16string_view(text, SysStringLen(text)) : std::u16string_view();
}

bool IsInteger(VARTYPE vt) {
  switch (vt) {
    case VT_I1: case VT_UI1: case VT_I2: case VT_UI2: case VT_I4: case VT_UI4:
    case VT_INT: case VT_UINT: case VT_I8: case VT_UI8:
      return true;
    default:
      return false;
  }
}

// A column index handed in as a variant: any integer type that fits in 32 bits.
LONG ColumnIndexOf(const VARIANT& column) {
  if (column.vt == VT_I4) return column.lVal;
  if (!IsInteger(column.vt)) AtlThrow(E_INVALIDARG);
  VARIANT index;
  VariantInit(&index);
  if (FAILED(VariantChangeType(&index, &column, 0, VT_I4))) AtlThrow(E_INVALIDARG);
  return index.lVal;
}

}  // namespace

// ---- columns ----------------------------------------------------------------

HRESULT DataColumns::AddColumn(BSTR name, VARTYPE type, LONG) {
  return Locked([&] {
    // Cells hold values, never references or arrays.
    if (type & ~VT_TYPEMASK) AtlThrow(E_INVALIDARG);
    m_columns.push_back({std::u16string(ViewOf(name)), type});
  });
}

HRESULT DataColumns::GetCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_columns.size());
  });
}

HRESULT DataColumns::GetName(LONG index, BSTR* name) {
  return Locked([&] {
    CheckOut(name);
    if (index < 0 || static_cast<size_t>(index) >= m_columns.size()) AtlThrow(E_INVALIDARG);
    *name = AllocBstr(m_columns[index].name);
  });
}

HRESULT DataColumns::GetType(LONG index, VARTYPE* type) {
  return Locked([&] {
    CheckOut(type);
    *type = TypeAt(index);
  });
}

HRESULT DataColumns::Find(BSTR name, LONG* index) {
  return Locked([&]() -> HRESULT {
    CheckOut(index);
    *index = IndexOf(ViewOf(name));
    return *index < 0 ? S_FALSE : S_OK;
  });
}

LONG DataColumns::Count() const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return static_cast<LONG>(m_columns.size());
}

LONG DataColumns::IndexOf(std::u16string_view name) const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  // Names need not be unique: the first one wins.
  for (size_t i = 0; i < m_columns.size(); ++i)
    if (WideEqualNoCase(m_columns[i].name, name)) return static_cast<LONG>(i);
  return -1;
}

VARTYPE DataColumns::TypeAt(LONG index) const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  if (index < 0 || static_cast<size_t>(index) >= m_columns.size()) AtlThrow(E_INVALIDARG);
  return m_columns[index].type;
}

// ---- row --------------------------------------------------------------------

HRESULT DataRow::FinalConstruct() {
  // Rows are usually made after the columns: one allocation holds them all.
  m_cells.resize(m_columns->Count());
  return S_OK;
}

void DataRow::Store(LONG column, const VARIANT& value) {
  VARTYPE type = m_columns->TypeAt(column);
  // A cell owns its value: a reference would outlive what it points at.
  if (value.vt & ~VT_TYPEMASK) AtlThrow(DISP_E_BADVARTYPE);
  CVariant cell;
  // An empty or null value clears the cell rather than turning into 0 or failing.
  if (type == VT_EMPTY || value.vt == type || value.vt == VT_EMPTY || value.vt == VT_NULL)
    CheckHr(VariantCopy(&cell, &value));
  else
    CheckHr(VariantChangeType(&cell, &value, 0, type));
  if (static_cast<size_t>(column) >= m_cells.size()) m_cells.resize(std::max<size_t>(column + 1, m_columns->Count()));
  m_cells[column] = std::move(cell);
}

void DataRow::Load(LONG column, VARIANT* value) const {
  m_columns->TypeAt(column);  // the range test
  if (static_cast<size_t>(column) < m_cells.size()) CheckHr(VariantCopy(value, &m_cells[column]));
}

LONG DataRow::IndexOfName(BSTR column) const {
  LONG index = m_columns->IndexOf(ViewOf(column));
  if (index < 0) AtlThrow(E_INVALIDARG);
  return index;
}

HRESULT DataRow::SetValue(VARIANT column, VARIANT* value) {
  return Locked([&] {
    if (!value) AtlThrow(E_POINTER);
    Store(ColumnIndexOf(column), *value);
  });
}

HRESULT DataRow::SetValueByName(BSTR column, VARIANT* value) {
  return Locked([&] {
    if (!value) AtlThrow(E_POINTER);
    Store(IndexOfName(column), *value);
  });
}

HRESULT DataRow::GetValue(LONG column, VARIANT* value) {
  return Locked([&] {
    if (!value) AtlThrow(E_POINTER);
    VariantInit(value);
    Load(column, value);
  });
}

HRESULT DataRow::GetValueByName(BSTR column, VARIANT* value) {
  return Locked([&] {
    if (!value) AtlThrow(E_POINTER);
    VariantInit(value);
    Load(IndexOfName(column), value);
  });
}

HRESULT DataRow::GetValues(LONG count, VARIANT* values) {
  return Locked([&] {
    if (count < 0) AtlThrow(E_INVALIDARG);
    if (count == 0) return;
    if (!values) AtlThrow(E_POINTER);
    // Every slot is valid before anything can fail, so the caller may clear them all.
    for (LONG i = 0; i < count; ++i) VariantInit(&values[i]);
    if (count > m_columns->Count()) AtlThrow(E_INVALIDARG);
    for (LONG i = 0; i < count; ++i) Load(i, &values[i]);
  });
}

// ---- rows -------------------------------------------------------------------

HRESULT DataRows::AddRow(IDataRow** out) {
  return Locked([&] {
    CheckOut(out);
    ComPtr<DataRow> row = DataRow::Create(m_columns);
    m_rows.push_back(row);
    *out = row.Detach();
  });
}

HRESULT DataRows::GetCount(LONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<LONG>(m_rows.size());
  });
}

HRESULT DataRows::GetRow(LONG index, IDataRow** out) {
  return Locked([&] {
    CheckOut(out);
    if (index < 0 || static_cast<size_t>(index) >= m_rows.size()) AtlThrow(E_INVALIDARG);
    *out = m_rows[index].Get();
    (*out)->AddRef();
  });
}

// ---- table ------------------------------------------------------------------

HRESULT DataTable::FinalConstruct() {
  m_columns = DataColumns::Create();
  m_rows = DataRows::Create(m_columns);
  return S_OK;
}

HRESULT DataTable::GetColumns(IDataColumns** out) {
  return Locked([&] {
    CheckOut(out);
    *out = m_columns.Get();
    (*out)->AddRef();
  });
}

HRESULT DataTable::GetRows(IDataRows** out) {
  return Locked([&] {
    CheckOut(out);
    *out = m_rows.Get();
    (*out)->AddRef();
  });
}

}  // namespace zemo
