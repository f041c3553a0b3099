#include "engine/data_table.h"

#include <algorithm>
#include <cstring>

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

// ---- rows -------------------------------------------------------------------

namespace {

// The types whose whole value lies in the variant's eight bytes.
bool IsPlain(VARTYPE vt) {
  switch (vt) {
    case VT_EMPTY: case VT_NULL: case VT_I1: case VT_UI1: case VT_I2: case VT_UI2: case VT_I4: case VT_UI4:
    case VT_INT: case VT_UINT: case VT_I8: case VT_UI8: case VT_R4: case VT_R8: case VT_BOOL:
    case VT_ERROR:
      return true;
    default:
      return false;
  }
}

}  // namespace

uint32_t DataRows::AddText(std::u16string_view text) {
  if (text.size() > 0xFFFFFFFFu - 2) AtlThrow(E_OUTOFMEMORY);
  const auto units = static_cast<uint32_t>(text.size()) + 2;
  const bool own = units > kPiece;
  if (own || m_pieceUsed + units > kPiece) {
    if (m_pieces.size() >= (size_t{1} << (32 - kPieceBits)) - 1) AtlThrow(E_OUTOFMEMORY);
    m_pieces.emplace_back(new char16_t[own ? units : kPiece]);
    m_pieceUsed = 0;
  }
  char16_t* at = m_pieces.back().get() + m_pieceUsed;
  const auto length = static_cast<uint32_t>(text.size());
  at[0] = static_cast<char16_t>(length & 0xFFFF);
  at[1] = static_cast<char16_t>(length >> 16);
  std::copy(text.begin(), text.end(), at + 2);
  const uint32_t place = static_cast<uint32_t>(m_pieces.size() - 1) << kPieceBits | m_pieceUsed;
  m_pieceUsed = own ? kPiece : m_pieceUsed + units;
  return place;
}

std::u16string_view DataRows::TextAt(uint32_t place) const noexcept {
  const char16_t* at = m_pieces[place >> kPieceBits].get() + (place & (kPiece - 1));
  return {at + 2, uint32_t{at[0]} | uint32_t{at[1]} << 16};
}

uint32_t DataRows::PlaceOf(BSTR text) {
  const std::u16string_view view(text, SysStringLen(text));
  if (!m_known) {
    if (m_rows.size() < kKnownFrom) return AddText(view);
    m_known.reset(new KnownText[size_t{1} << kKnownBits]);
  }
  const auto address = reinterpret_cast<uintptr_t>(text);
  KnownText& known = m_known[(address >> 3) * 0x9E3779B97F4A7C15ull >> (64 - kKnownBits)];
  if (known.text == text && TextAt(known.place) == view) return known.place;
  known = KnownText{text, AddText(view)};
  return known.place;
}

DataRows::Cell DataRows::Pack(const VARIANT& value) {
  Cell cell;
  cell.vt = value.vt;
  if (value.vt == VT_BSTR)
    cell.ref = value.bstrVal ? PlaceOf(value.bstrVal) : kNullText;
  else
    std::memcpy(&cell.bits, &value.llVal, sizeof cell.bits);
  return cell;
}

DataRows::Cell DataRows::Keep(CVariant&& value) {
  if (IsPlain(value.vt) || value.vt == VT_BSTR) return Pack(value);
  Cell cell;
  cell.vt = value.vt;
  cell.ref = static_cast<uint32_t>(m_kept.size());
  m_kept.push_back(std::move(value));
  return cell;
}

void DataRows::Unpack(const Cell& cell, VARIANT* out) const {
  if (IsPlain(cell.vt)) {
    CheckHr(VariantClear(out));
    out->vt = cell.vt;
    std::memcpy(&out->llVal, &cell.bits, sizeof cell.bits);
  } else if (cell.vt == VT_BSTR) {
    BSTR text = nullptr;
    if (cell.ref != kNullText) {
      std::u16string_view stored = TextAt(cell.ref);
      text = SysAllocStringLen(stored.data(), static_cast<uint32_t>(stored.size()));
      if (!text) AtlThrow(E_OUTOFMEMORY);
    }
    VariantClear(out);
    out->vt = VT_BSTR;
    out->bstrVal = text;
  } else {
    CheckHr(VariantCopy(out, &m_kept[cell.ref]));
  }
}

void DataRows::View(size_t row, std::vector<DataCellView>& views) const {
  views.assign(static_cast<size_t>(m_columns->Count()), DataCellView{});
  const Span& span = m_rows[row];
  for (uint32_t i = 0; i < span.width && i < views.size(); ++i) {
    const Cell& cell = m_cells[span.first + i];
    DataCellView& view = views[i];
    if (IsPlain(cell.vt)) {
      view.value.vt = cell.vt;
      std::memcpy(&view.value.llVal, &cell.bits, sizeof cell.bits);
    } else if (cell.vt == VT_BSTR) {
      view.value.vt = VT_BSTR;
      if (cell.ref != kNullText) view.text = TextAt(cell.ref);
    } else {
      std::memcpy(&view.value, &m_kept[cell.ref], sizeof(VARIANT));
    }
  }
}

DataRows::Cell& DataRows::Place(size_t row, LONG column) {
  Span& span = m_rows[row];
  const auto wanted = static_cast<uint32_t>(column);
  if (wanted >= span.width) {
    const uint32_t width = std::max<uint32_t>(wanted + 1, static_cast<uint32_t>(m_columns->Count()));
    const bool last = span.first + span.width == m_cells.size();
    const size_t first = last ? span.first : m_cells.size();
    if (first + width > 0xFFFFFFFFu) AtlThrow(E_OUTOFMEMORY);
    m_cells.resize(first + width);
    if (!last) std::copy_n(m_cells.begin() + span.first, span.width, m_cells.begin() + first);
    span = Span{static_cast<uint32_t>(first), width};
  }
  return m_cells[span.first + wanted];
}

DataRows::Cell DataRows::Convert(VARTYPE type, const VARIANT& value) {
  // A cell owns its value: a reference would outlive what it points at.
  if (value.vt & ~VT_TYPEMASK) AtlThrow(DISP_E_BADVARTYPE);
  // An empty or null value clears the cell rather than turning into 0 or failing.
  const bool asItIs = type == VT_EMPTY || value.vt == type || value.vt == VT_EMPTY || value.vt == VT_NULL;
  if (asItIs && (IsPlain(value.vt) || value.vt == VT_BSTR)) return Pack(value);
  CVariant cell;
  if (asItIs)
    CheckHr(VariantCopy(&cell, &value));
  else
    CheckHr(VariantChangeType(&cell, &value, 0, type));
  return Keep(std::move(cell));
}

void DataRows::Store(size_t row, LONG column, const VARIANT& value) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  const VARTYPE type = m_columns->TypeAt(column);
  Place(row, column) = Convert(type, value);
}

HRESULT DataRows::AppendRow(LONG count, const VARIANT* const* values) {
  return Locked([&] {
    const auto width = static_cast<uint32_t>(m_columns->Count());
    if (count < 0 || static_cast<uint32_t>(count) > width) AtlThrow(E_INVALIDARG);
    if (count > 0 && !values) AtlThrow(E_POINTER);
    if (m_cells.size() + width > 0xFFFFFFFFu) AtlThrow(E_OUTOFMEMORY);
    // Every cell is made before the row joins, so that a failure adds no
    // half row (a text it stored stays in the pool, unreferenced).
    std::vector<Cell> made(static_cast<size_t>(count));
    for (LONG i = 0; i < count; ++i)
      if (values[i] && values[i]->vt != VT_EMPTY) made[i] = Convert(m_columns->TypeAt(i), *values[i]);
    const auto first = static_cast<uint32_t>(m_cells.size());
    m_cells.resize(m_cells.size() + width);
    std::copy(made.begin(), made.end(), m_cells.begin() + first);
    m_rows.push_back(Span{first, width});
  });
}

void DataRows::Load(size_t row, LONG column, VARIANT* value) const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_columns->TypeAt(column);  // the range test
  const Span& span = m_rows[row];
  if (static_cast<uint32_t>(column) < span.width) Unpack(m_cells[span.first + column], value);
}

void DataRows::LoadAll(size_t row, LONG count, VARIANT* values) const {
  if (count < 0) AtlThrow(E_INVALIDARG);
  if (count == 0) return;
  if (!values) AtlThrow(E_POINTER);
  // Every slot is valid before anything can fail, so the caller may clear them all.
  for (LONG i = 0; i < count; ++i) VariantInit(&values[i]);
  std::lock_guard<CObjectLock> hold(ObjectLock());
  if (count > m_columns->Count()) AtlThrow(E_INVALIDARG);
  const Span& span = m_rows[row];
  for (LONG i = 0; i < count && static_cast<uint32_t>(i) < span.width; ++i) Unpack(m_cells[span.first + i], &values[i]);
}

LONG DataRows::ColumnOfName(BSTR column) const {
  LONG index = m_columns->IndexOf(ViewOf(column));
  if (index < 0) AtlThrow(E_INVALIDARG);
  return index;
}

HRESULT DataRows::AddRow(IDataRow** out) {
  return Locked([&] {
    CheckOut(out);
    // Rows are usually made after the columns, so a row has its width at once.
    const auto width = static_cast<uint32_t>(m_columns->Count());
    if (m_cells.size() + width > 0xFFFFFFFFu) AtlThrow(E_OUTOFMEMORY);
    ComPtr<DataRow> row = DataRow::Create(ComPtr<DataRows>(this), m_rows.size());
    m_rows.push_back(Span{static_cast<uint32_t>(m_cells.size()), width});
    m_cells.resize(m_cells.size() + width);
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
    *out = DataRow::Create(ComPtr<DataRows>(this), static_cast<size_t>(index)).Detach();
  });
}

// ---- row views ----------------------------------------------------------------

HRESULT DataRow::SetValue(VARIANT column, VARIANT* value) {
  return Unlocked([&] {
    if (!value) AtlThrow(E_POINTER);
    m_rows->Store(m_index, ColumnIndexOf(column), *value);
  });
}

HRESULT DataRow::SetValueByName(BSTR column, VARIANT* value) {
  return Unlocked([&] {
    if (!value) AtlThrow(E_POINTER);
    m_rows->Store(m_index, m_rows->ColumnOfName(column), *value);
  });
}

HRESULT DataRow::GetValue(LONG column, VARIANT* value) {
  return Unlocked([&] {
    if (!value) AtlThrow(E_POINTER);
    VariantInit(value);
    m_rows->Load(m_index, column, value);
  });
}

HRESULT DataRow::GetValueByName(BSTR column, VARIANT* value) {
  return Unlocked([&] {
    if (!value) AtlThrow(E_POINTER);
    VariantInit(value);
    m_rows->Load(m_index, m_rows->ColumnOfName(column), value);
  });
}

HRESULT DataRow::GetValues(LONG count, VARIANT* values) {
  return Unlocked([&] { m_rows->LoadAll(m_index, count, values); });
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
