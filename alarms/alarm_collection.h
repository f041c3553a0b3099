// AlarmCollection: the stored list of alarm definitions, in the order they
// were added, one alarm per id: the form in which a host keeps, edits, loads
// and saves its alarms. Its file (the `Alarms` element) is the one file of
// the module that can be read back; its stream holds the same document.
#pragma once

#include <span>

#include "alarms/alarm_interfaces.h"
#include "frame/clsids.h"
#include "frame/persist_interfaces.h"
#include "frame/ref_array.h"
#include "platform/object.h"

namespace zemo {

class AlarmCollection final : public Object<AlarmCollection, DualInterface<IAlarmCollection>, IPersistStream,
                                            IPersistXml, IPersistFile, ISelectableObject> {
 public:
  // IAlarmCollection
  HRESULT GetAlarm(LONG index, IAlarm** alarm) override;
  HRESULT GetCount(LONG* count) override;
  HRESULT FindAlarm(const GUID& id, IAlarm** alarm) override;
  HRESULT AddAlarm(IAlarm* alarm) override;
  HRESULT RemoveAlarm(IAlarm* alarm) override;
  HRESULT RemoveAll() override;

  // IPersistStream, IPersistXml, IPersistFile
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;
  HRESULT Load(LPCOLESTR fileName, DWORD mode) override;
  HRESULT Save(LPCOLESTR fileName, BOOL remember) override;
  HRESULT SaveCompleted(LPCOLESTR) override { return S_OK; }
  HRESULT GetCurFile(LPOLESTR*) override { return E_NOTIMPL; }

  // ISelectableObject: a step `alarm` with a bag of `name` or `id`.
  HRESULT GetSelectName(BSTR* name) override;
  HRESULT GetSelectFlag(ULONG* flag) override;
  HRESULT GetSelectParams(ISelectParams** params) override;
  HRESULT Select(ISelectParams* params, IUnknown** out) override;
  HRESULT GetTable(IDataTable** table) override;

 private:
  TRefArray<IAlarm> m_alarms;
};

// The selection step `alarm` over a list of alarms, shared by the collection
// and the server: the step's bag names the alarm by `name` (any case of
// letters) or by `id`; the first alarm in order that passes either test is
// taken, and the selection goes on from it. A step of another name, a step
// without a bag, a bag with neither, or no match: E_INVALIDARG.
HRESULT SelectAlarm(std::span<IAlarm* const> alarms, std::u16string_view step, IPropertyBag* bag,
                    ISelectParams* params, IUnknown** out);

// Whether two interface pointers belong to one object.
bool SameObject(IUnknown* a, IUnknown* b);

}  // namespace zemo
