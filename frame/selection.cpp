#include "frame/selection.h"

#include "frame/xml_persist.h"
#include "platform/class_store.h"

namespace zemo {

std::u16string GetSelectableName(IUnknown* object) {
  if (!object) return u"NULL";
  ComPtr<ISelectableObject> selectable;
  if (FAILED(QueryTo(object, &selectable))) return {};
  CBstr name;
  if (FAILED(selectable->GetSelectName(name.Out()))) return u"error";
  return std::u16string(name.View());
}

HRESULT SelectChild(IUnknown* child, std::u16string_view name, ISelectParams* params, IUnknown** out) {
  if (!child) return kSelectNotMine;
  ComPtr<ISelectableObject> selectable;
  if (FAILED(QueryTo(child, &selectable))) return kSelectNotMine;
  CBstr childName;
  if (FAILED(selectable->GetSelectName(childName.Out())) || !WideEqualNoCase(childName.View(), name))
    return kSelectNotMine;
  return selectable->Select(params, out);
}

HRESULT SelectFound(ISelectParams* params, IUnknown* object, IUnknown** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!object) return E_POINTER;
  LONG left = 0;
  if (params) CheckHr(params->GetCount(&left));
  if (left == 0) return object->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
  ComPtr<ISelectableObject> selectable;
  if (FAILED(QueryTo(object, &selectable))) return E_INVALIDARG;
  return selectable->Select(params, out);
}

HRESULT SelectLeaf(ISelectParams* params, IUnknown* self, IUnknown** out, HRESULT furtherStep, bool nullParamsEnd) {
  if (!out || (!params && !nullParamsEnd)) return E_POINTER;
  *out = nullptr;
  if (params) {
    CBstr step;
    ComPtr<IPropertyBag> bag;
    if (CheckHr(params->NextItem(step.Out(), bag.ReleaseAndGetAddressOf())) != S_FALSE) return furtherStep;
  }
  return self->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(out));
}

ComPtr<ISelectParams> NewSelectParams() {
  CLSID clsid = GUID_NULL;
  ComPtr<ISelectParams> params;
  CheckHr(CLSIDFromProgID(kProgIdSelectParams, &clsid));
  CheckHr(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, ISelectParams::iid, params.OutVoid()));
  return params;
}

void AddSelectStep(ISelectParams* params, std::u16string_view name, IPropertyBag* bag) {
  CBstr text(name);
  CheckHr(params->AddItem(text.Get(), bag));
}

ComPtr<IPropertyBag> NewTypeBag(std::initializer_list<std::pair<const char16_t*, VARTYPE>> properties) {
  CLSID clsid = GUID_NULL;
  ComPtr<IPropertyBag> bag;
  CheckHr(CLSIDFromProgID(kProgIdSimplePropBag, &clsid));
  CheckHr(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IPropertyBag::iid, bag.OutVoid()));
  for (const auto& [name, type] : properties) {
    CVariant value = CVariant::I4(type);
    CheckHr(bag->Write(name, &value));
  }
  return bag;
}

bool ReadBagText(IPropertyBag* bag, const char16_t* name, std::u16string& text) {
  CVariant value;
  if (FAILED(bag->Read(name, &value, nullptr))) return false;
  text = XmlText(value);
  return true;
}

void MakeTable(IDataTable** ioTable, std::span<const TableColumn> columns) {
  if (!ioTable) AtlThrow(E_POINTER);
  ComPtr<IDataTable> table(*ioTable);
  if (!table) {
    CLSID clsid;
    CheckHr(CLSIDFromProgID(kProgIdDataTable, &clsid));
    CheckHr(CoCreateInstance(clsid, nullptr, CLSCTX_ALL, IDataTable::iid, table.OutVoid()));
  }
  ComPtr<IDataColumns> cols;
  CheckHr(table->GetColumns(cols.ReleaseAndGetAddressOf()));
  for (const TableColumn& c : columns) {
    CBstr name{std::u16string_view(c.name)};
    CheckHr(cols->AddColumn(name.Get(), c.type, 0));
  }
  if (!*ioTable) *ioTable = table.Detach();
}

TableRows::TableRows(IDataTable* table) {
  if (!table) AtlThrow(E_POINTER);
  CheckHr(table->GetRows(m_rows.ReleaseAndGetAddressOf()));
  m_rows.As(&m_append);
}

ComPtr<IDataRow> TableRows::NewRow() {
  ComPtr<IDataRow> row;
  CheckHr(m_rows->AddRow(row.ReleaseAndGetAddressOf()));
  return row;
}

void TableRows::SetCell(IDataRow* row, LONG column, const VARIANT& value) {
  CVariant index = CVariant::I4(column);
  // SetValue reads the value only; its signature predates const.
  CheckHr(row->SetValue(index, const_cast<VARIANT*>(&value)));
}

void TableRows::Add(std::initializer_list<Cell> values) {
  const VARIANT* cells[32];
  if (m_append && values.size() <= std::size(cells)) {
    LONG n = 0;
    for (Cell c : values) cells[n++] = c.value;
    CheckHr(m_append->AppendRow(n, cells));
    return;
  }
  ComPtr<IDataRow> row = NewRow();
  LONG column = 0;
  for (Cell c : values) {
    if (c.value->vt != VT_EMPTY) SetCell(row.Get(), column, *c.value);
    ++column;
  }
}

}  // namespace zemo
