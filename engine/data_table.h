// ZemoUtil.DataTable: the table of named, typed columns that the statistics
// fill for ISelectableObject::GetTable and that a host prints or serialises.
//
// References run one way: table -> columns, table -> rows -> each row ->
// columns. A row or the columns object a host holds stays usable after the
// table is gone, and nothing points back up, so there are no cycles.
#pragma once

#include <memory>
#include <mutex>
#include <span>
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

class DataRows;

// A cell as a host that reads its own table directly sees it, lent for the
// call: text as a view (value.vt is VT_BSTR, value.bstrVal unset), any
// other value as a variant that holds no reference of its own.
struct DataCellView {
  VARIANT value;
  std::u16string_view text;
};

// One row of a DataRows: a view that keeps the rows alive, so that a host
// may hold it after the table is gone. The cells live in the rows object,
// which spares a large table an object per row.
class DataRow final : public Object<DataRow, IDataRow> {
 public:
  DataRow(ComPtr<DataRows> rows, size_t index) : m_rows(std::move(rows)), m_index(index) {}

  HRESULT SetValue(VARIANT column, VARIANT* value) override;
  HRESULT SetValueByName(BSTR column, VARIANT* value) override;
  HRESULT GetValue(LONG column, VARIANT* value) override;
  HRESULT GetValueByName(BSTR column, VARIANT* value) override;
  HRESULT GetValues(LONG count, VARIANT* values) override;

 private:
  ComPtr<DataRows> m_rows;
  size_t m_index;
};

// The rows of a table and all their cells. A table of a large capture has
// hundreds of thousands of rows, so cells are 16 bytes each in one array,
// their text lies end to end in large pieces, and a value is a VARIANT again
// only when it is read: a row costs no allocation of its own.
class DataRows final : public Object<DataRows, IDataRows, IDataRowsAppend> {
 public:
  explicit DataRows(ComPtr<DataColumns> columns) : m_columns(std::move(columns)) {}

  HRESULT AddRow(IDataRow** out) override;
  HRESULT GetCount(LONG* count) override;
  HRESULT GetRow(LONG index, IDataRow** out) override;
  HRESULT AppendRow(LONG count, const VARIANT* const* values) override;

  // The cell operations of the row views, each under this object's lock.
  // Raise on a bad column.
  void Store(size_t row, LONG column, const VARIANT& value);
  void Load(size_t row, LONG column, VARIANT* value) const;
  LONG ColumnOfName(BSTR column) const;
  // Sets the first count cells of row; every one is valid before anything
  // can fail.
  void LoadAll(size_t row, LONG count, VARIANT* values) const;

  // The reading side for the host that made the table's class: fn(row,
  // cells) with a view of each cell in column order, for one row (false if
  // there is no such row) or all of them, under the lock and without copies.
  template <class Fn>
  bool ViewRow(size_t row, Fn&& fn) const {
    std::lock_guard<CObjectLock> hold(ObjectLock());
    if (row >= m_rows.size()) return false;
    std::vector<DataCellView> views;
    View(row, views);
    fn(row, std::span<const DataCellView>(views));
    return true;
  }
  template <class Fn>
  void ForEachRow(Fn&& fn) const {
    std::lock_guard<CObjectLock> hold(ObjectLock());
    std::vector<DataCellView> views;
    for (size_t row = 0; row < m_rows.size(); ++row) {
      View(row, views);
      fn(row, std::span<const DataCellView>(views));
    }
  }

 private:
  // A value without resources in its bits; text by its place in the pool;
  // anything else (objects, identifiers) by its place among the kept values.
  struct Cell {
    VARTYPE vt = VT_EMPTY;
    uint32_t ref = 0;
    uint64_t bits = 0;
  };
  static_assert(sizeof(Cell) == 16);
  // A row's cells: m_cells[first, first + width). Cells past the width
  // (columns added after the row) read as empty.
  struct Span {
    uint32_t first;
    uint32_t width;
  };
  static constexpr uint32_t kNullText = 0xFFFFFFFFu;

  // A plain or text value as a cell; Keep takes any value, keeping what
  // holds resources as it is.
  Cell Pack(const VARIANT& value);
  Cell Keep(CVariant&& value);
  void Unpack(const Cell& cell, VARIANT* out) const;
  // Views of a row's cells, as many as there are columns.
  void View(size_t row, std::vector<DataCellView>& views) const;
  // A text into the pieces; its place there.
  uint32_t AddText(std::u16string_view text);
  // The place of a BSTR's text, stored once: a large table names the same
  // few entities in row after row, each time by the same BSTR.
  uint32_t PlaceOf(BSTR text);
  // A cell made from a value for a column of the type, under the lock.
  Cell Convert(VARTYPE type, const VARIANT& value);
  std::u16string_view TextAt(uint32_t place) const noexcept;
  // Room for column in row, moving the row to the end when it must widen
  // and is not the last.
  Cell& Place(size_t row, LONG column);

  ComPtr<DataColumns> m_columns;
  std::vector<Cell> m_cells;
  std::vector<Span> m_rows;
  // Texts, each its length in two units and then its units, in pieces of
  // kPiece units (a longer text has a piece of its own); a text's place is
  // its piece above kPieceBits and its offset below.
  static constexpr uint32_t kPieceBits = 16;
  static constexpr uint32_t kPiece = 1u << kPieceBits;
  std::vector<std::unique_ptr<char16_t[]>> m_pieces;
  uint32_t m_pieceUsed = kPiece;
  std::vector<CVariant> m_kept;
  // Recent texts by their BSTR's address, each checked against the stored
  // text before its place is reused (an address may have been freed and
  // taken again); made once a table grows large.
  struct KnownText {
    BSTR text = nullptr;
    uint32_t place = 0;
  };
  static constexpr uint32_t kKnownBits = 15;
  static constexpr size_t kKnownFrom = 1024;  // rows
  std::unique_ptr<KnownText[]> m_known;
};

class DataTable final : public Object<DataTable, IDataTable> {
 public:
  HRESULT FinalConstruct();

  HRESULT GetColumns(IDataColumns** out) override;
  HRESULT GetRows(IDataRows** out) override;

  // The rows, for the host that reads its own table directly.
  const DataRows& Rows() const noexcept { return *m_rows; }

 private:
  ComPtr<DataColumns> m_columns;
  ComPtr<DataRows> m_rows;
};

}  // namespace zemo
