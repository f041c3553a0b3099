// The selection protocol's shared steps: naming an object, handing a path
// step to a child, finishing a step at an object, and building the table a
// class answers GetTable with.
//
//   HRESULT Select(ISelectParams* params, IUnknown** out) {     // a class with one child
//     return Locked([&]() -> HRESULT {
//       CheckOut(out);
//       CBstr name;
//       ComPtr<IPropertyBag> bag;
//       if (CheckHr(params->NextItem(name.Out(), bag.ReleaseAndGetAddressOf())) == S_FALSE)
//         return GetUnknown()->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
//       HRESULT hr = SelectChild(m_child.Get(), name.View(), params, out);
//       return hr == kSelectNotMine ? E_INVALIDARG : hr;
//     });
//   }
#pragma once

#include <initializer_list>
#include <utility>
#include <span>
#include <string>
#include <string_view>

#include "frame/persist_interfaces.h"
#include "platform/object.h"
#include "platform/strings.h"
#include "platform/variant.h"

namespace zemo {

// The selection name of any object: "NULL" for null, empty for an object
// that isn't selectable, "error" when its GetSelectName fails.
std::u16string GetSelectableName(IUnknown* object);

// SelectChild's answer when the step names something else.
inline constexpr HRESULT kSelectNotMine = 1;

// If child is selectable and its name equals `name` (case-blind), the step
// is the child's: the result of its Select(params, out). Otherwise, a null
// child included, kSelectNotMine.
HRESULT SelectChild(IUnknown* child, std::u16string_view name, ISelectParams* params, IUnknown** out);

// A step has led to `object`. If no step is left (null params count as
// none), out is the object with a reference added; otherwise the object
// must be selectable (else E_INVALIDARG) and its Select goes on.
HRESULT SelectFound(ISelectParams* params, IUnknown* object, IUnknown** out);

// Select of an object without children. With no step left, out is self; a
// further step gives `furtherStep` (the statistics answer E_NOTIMPL, the
// identity tables E_INVALIDARG). Null params are E_POINTER unless
// `nullParamsEnd` lets them count as the end of the path.
HRESULT SelectLeaf(ISelectParams* params, IUnknown* self, IUnknown** out, HRESULT furtherStep = E_NOTIMPL,
                   bool nullParamsEnd = false);

// The name, flag and offered steps of a selectable object, listed in the
// object skeleton in place of ISelectableObject: the name D::kSelectName,
// the flag D::kSelectFlag, no steps to offer. D implements Select and
// GetTable.
template <class D>
struct NamedSelection : ISelectableObject {
  using interface_type = ISelectableObject;
  HRESULT GetSelectName(BSTR* name) final {
    return Boundary([&] {
      CheckOut(name);
      *name = AllocBstr(D::kSelectName);
    });
  }
  HRESULT GetSelectFlag(ULONG* flag) final {
    return Boundary([&] {
      CheckOut(flag);
      *flag = D::kSelectFlag;
    });
  }
  HRESULT GetSelectParams(ISelectParams** params) final {
    return Boundary([&]() -> HRESULT {
      CheckOut(params);
      return E_NOTIMPL;
    });
  }
};

// ISelectableObject of an object without children: a named selection whose
// path ends here or gives E_NOTIMPL. D implements GetTable and lets this
// base reach its lock (as a friend of D or of a base of D between it and
// the skeleton).
template <class D>
struct LeafSelection : NamedSelection<D> {
  HRESULT Select(ISelectParams* params, IUnknown** out) final {
    D* self = static_cast<D*>(this);
    return self->Locked([&] { return SelectLeaf(params, self->GetUnknown(), out); });
  }
};

// The parameters of GetSelectParams: a new "ZemoUtil.SelectParams", and a new
// "ZemoUtil.SimplePropBag" that names the type a selection takes for each
// property (VT_BSTR for a name, VT_CLSID for an identifier) as an integer.
// Raise failures.
ComPtr<ISelectParams> NewSelectParams();
void AddSelectStep(ISelectParams* params, std::u16string_view name, IPropertyBag* bag = nullptr);
ComPtr<IPropertyBag> NewTypeBag(std::initializer_list<std::pair<const char16_t*, VARTYPE>> properties);

// A property of a step's bag as text (a value of any other type converted);
// false when the bag doesn't have it.
bool ReadBagText(IPropertyBag* bag, const char16_t* name, std::u16string& text);

struct TableColumn {
  const char16_t* name;
  VARTYPE type;
};

// Adds the columns to *ioTable, creating a "ZemoUtil.DataTable" first if
// *ioTable is null; the created table goes out in *ioTable with its
// reference. Raises failures. Used in GetTable:
//   CheckOut(out); MakeTable(out, kColumns); TableRows rows(*out); rows.Add({...});
void MakeTable(IDataTable** ioTable, std::span<const TableColumn> columns);

// Adds rows to a table, each value set by column index.
class TableRows {
 public:
  explicit TableRows(IDataTable* table);

  // A value of a row by reference, so that a row is written without copies
  // of its cells; it may refer to a temporary of the same expression.
  struct Cell {
    Cell(const VARIANT& value) : value(&value) {}  // NOLINT: converts on purpose
    const VARIANT* value;
  };

  // One row with the values in column order; a VT_EMPTY value is skipped.
  void Add(std::initializer_list<Cell> values);

  // A new row for a caller that sets its cells itself with SetCell.
  ComPtr<IDataRow> NewRow();
  static void SetCell(IDataRow* row, LONG column, const VARIANT& value);

 private:
  ComPtr<IDataRows> m_rows;
  ComPtr<IDataRowsAppend> m_append;  // where the table offers it
};

}  // namespace zemo
