// What the statistics need of the capture engine's support objects. The
// objects themselves live in the host (engine/) and are created by program
// identifier through the class store.
#pragma once

#include "identity/media_specs.h"
#include "platform/interfaces.h"
#include "wireless/wireless_channel.h"

inline constexpr char16_t kProgIdSelectParams[] = u"ZemoUtil.SelectParams";
inline constexpr char16_t kProgIdSimplePropBag[] = u"ZemoUtil.SimplePropBag";
inline constexpr char16_t kProgIdDataTable[] = u"ZemoUtil.DataTable";
inline constexpr char16_t kProgIdMediaUtils[] = u"ZemoCore.MediaUtils";
inline constexpr char16_t kProgIdProtoSpecs[] = u"ZemoCore.ProtoSpecs";
// The expert component, a statistic that the summary updater offers the
// snapshot to when a context holds one under this class.
inline constexpr char16_t kProgIdExpertStats[] = u"korvant.ExpertStats";

// A protocol identifier of the host's protocol tree: 16 bits in a 32-bit
// value; 0xFFFF means none.
inline constexpr ULONG kNoProtoSpec = 0xFFFF;

struct IMediaUtils : IUnknown {
  static constexpr IID iid = MakeGuid("E3305E02-60C7-4B5F-9C43-707433AB6181");
  // The text of an address or protocol in the form the host shows.
  virtual HRESULT SpecToString(const MediaSpec* spec, BSTR* text) = 0;
};

struct IProtoSpecs : IUnknown {
  static constexpr IID iid = MakeGuid("B91DAA66-1EF8-4F3D-AFD5-BBCC95B014FC");
  virtual HRESULT GetParentSpec(ULONG id, ULONG* parent) = 0;
  virtual HRESULT GetSpecName(ULONG id, BSTR* name) = 0;
  // Depth in the tree; above 1 means the protocol has a parent.
  virtual HRESULT GetSpecLevel(ULONG id, ULONG* level) = 0;
  // S_OK if id lies at or below one of ids, S_FALSE if not.
  virtual HRESULT IsSpecWithin(ULONG id, const ULONG* ids, ULONG count, ULONG reserved1, ULONG reserved2) = 0;
  // The identifiers from the root down to id; count: in, room (100); out, used.
  virtual HRESULT GetSpecPath(ULONG id, USHORT* path, ULONG* count) = 0;
  // The protocol spec (type 9) of the last identifier of a path.
  virtual HRESULT FindSpecByPath(const USHORT* path, ULONG count, MediaSpec* spec) = 0;
};

// The host's description of the capture adapter.
struct IAdapterInfo : IUnknown {
  static constexpr IID iid = MakeGuid("4B6FE574-F29B-4897-96E0-4EF6C9D32B3E");
  virtual HRESULT GetMediaType(ULONG* type) = 0;
  virtual HRESULT GetMediaSubType(ULONG* subType) = 0;
  virtual HRESULT GetLinkSpeed(ULONGLONG* speed) = 0;
  // Arrays come in task memory; the caller frees them.
  virtual HRESULT GetChannelNumbers(ULONG* count, ULONG** numbers) = 0;
  virtual HRESULT GetWirelessChannels(SWirelessChannel** channels, ULONG* count) = 0;
  virtual HRESULT GetDataRates(ULONG** rates, ULONG* count) = 0;
};

// The engine's notification sink.
struct INotify : IUnknown {
  static constexpr IID iid = MakeGuid("F0C4FA6C-827E-42A5-BB7F-F0CD09264A0E");
  virtual HRESULT Notify(const GUID& context, const GUID& source, ULONG value, ZemoTime time, LONG severity,
                         LPCOLESTR shortMessage, LPCOLESTR longMessage) = 0;
};

// The engine's list of ids, of the class CLSID_ZemoIdList: a statistics server
// keeps in it the ids of the alarms it runs. Ids keep the order of adding and
// may repeat.
inline constexpr CLSID CLSID_ZemoIdList = MakeGuid("E18AF1CF-7F83-45A7-95CB-410138FBC3E3");

struct IIdList : IUnknown {
  static constexpr IID iid = MakeGuid("47314F41-8E9E-4D99-AB39-504F024D46A9");
  virtual HRESULT GetCount(LONG* count) = 0;
  // Index past the end: E_INVALIDARG.
  virtual HRESULT GetAt(LONG index, GUID* id) = 0;
  virtual HRESULT Add(const GUID* id) = 0;
  // The first index of id, or S_FALSE and -1.
  virtual HRESULT Find(const GUID* id, LONG* index) = 0;
  virtual HRESULT RemoveAll() = 0;
};

// Services a context's site answers through IServiceProvider.
inline constexpr GUID kServiceUpdateSummaryStats = MakeGuid("1C97A0B8-2A56-41E9-80F7-7621BBA152BE");
inline constexpr GUID kServiceNameTable = MakeGuid("5574E41E-2D6C-48F4-B5A8-A7856FC6A290");

// One entry of the host's address book, as INameTable::Lookup fills it. Only
// the MediaSpec, the name, Kind and Trust have a meaning here; the host values
// travel unread into the wireless node records.
struct ZemoNameTableEntry {
  MediaSpec Spec;
  WCHAR Name[64];      // empty: no entry; a name of 64 units has no terminating zero
  WCHAR HostText[64];  // the host's own text
  BYTE HostByte1;      // 288
  BYTE Reserved1[3];
  ULONG HostValue1;    // 292
  ULONG HostValue2;    // 296
  ULONG HostValue3;    // 300
  BYTE HostByte2;      // 304
  BYTE Reserved2[3];
  BYTE Kind;           // 308; 0x60 carries no trust
  BYTE Reserved3[3];
  BYTE Trust;          // 312
  BYTE Reserved4[3];
};
static_assert(sizeof(ZemoNameTableEntry) == 316);
static_assert(offsetof(ZemoNameTableEntry, Name) == 32 && offsetof(ZemoNameTableEntry, HostByte1) == 288 &&
              offsetof(ZemoNameTableEntry, HostValue1) == 292 && offsetof(ZemoNameTableEntry, HostValue2) == 296 &&
              offsetof(ZemoNameTableEntry, HostValue3) == 300 && offsetof(ZemoNameTableEntry, HostByte2) == 304 &&
              offsetof(ZemoNameTableEntry, Kind) == 308 && offsetof(ZemoNameTableEntry, Trust) == 312);

// The host's address book, the service kServiceNameTable of a context's site.
struct INameTable : IUnknown {
  static constexpr IID iid = MakeGuid("CECF4167-6324-423A-B1AA-84F24ADC838D");
  // found FALSE and an entry of zeros when the book has no name for spec.
  virtual HRESULT Lookup(const MediaSpec* spec, ZemoNameTableEntry* entry, BOOL* found) = 0;
};

// The change stamp of an address book: a new value after every change.
struct INameTableStamp : IUnknown {
  static constexpr IID iid = MakeGuid("8069F53F-BF1B-4F4C-8E72-B31B0850E138");
  virtual ULONG GetStamp() = 0;
};

// One property asked of a context's site: its name and the VARTYPE wanted.
struct ZemoSiteProperty {
  LPCOLESTR Name;
  VARTYPE Type;
};
static_assert(sizeof(ZemoSiteProperty) == 2 * sizeof(void*));

// What the host knows of a capture beyond its packets (its duration, the
// packets it dropped, ...). The site itself answers it, through GetSite of
// the context's IObjectWithSite; it is no service.
struct ISiteProperties : IUnknown {
  static constexpr IID iid = MakeGuid("22DD49AF-9CB8-42E9-9D82-AEA9832F0758");
  // values[i] gets properties[i] in its type. The caller empties the values
  // first; a property the site doesn't have leaves its value empty.
  virtual HRESULT ReadProperties(ULONG count, const ZemoSiteProperty* properties, VARIANT* values) = 0;
};

// A path of selection steps, each a name with an optional property bag.
struct ISelectParams : IUnknown {
  static constexpr IID iid = MakeGuid("9674F47D-A123-4EDA-A842-204D1EEE211B");
  virtual HRESULT AddItem(BSTR name, IPropertyBag* bag) = 0;
  // Steps not yet taken; 0 means that the path has ended.
  virtual HRESULT GetCount(LONG* count) = 0;
  // Takes the next step off; S_FALSE when none is left.
  virtual HRESULT NextItem(BSTR* name, IPropertyBag** bag) = 0;
  // Puts every step back, for a host that walks the same path again.
  virtual HRESULT Rewind() = 0;
};

struct IDataColumns;
struct IDataRows;
struct IDataRow;

// A table of named, typed columns, the result of ISelectableObject::GetTable.
struct IDataTable : IUnknown {
  static constexpr IID iid = MakeGuid("0EC9C4EA-1A36-4259-BCB7-2BF7C3EDBCA1");
  virtual HRESULT GetColumns(IDataColumns** out) = 0;
  virtual HRESULT GetRows(IDataRows** out) = 0;
};

struct IDataColumns : IUnknown {
  static constexpr IID iid = MakeGuid("6F0D27A1-58C4-4B0B-9E0A-3C1D2E7B5A01");
  virtual HRESULT AddColumn(BSTR name, VARTYPE type, LONG reserved) = 0;
  // The reading side, for hosts that print or serialise a table.
  virtual HRESULT GetCount(LONG* count) = 0;
  virtual HRESULT GetName(LONG index, BSTR* name) = 0;
  virtual HRESULT GetType(LONG index, VARTYPE* type) = 0;
  // The index of a column by name, compared without regard to case; S_FALSE and -1 if none.
  virtual HRESULT Find(BSTR name, LONG* index) = 0;
};

struct IDataRows : IUnknown {
  static constexpr IID iid = MakeGuid("6F0D27A1-58C4-4B0B-9E0A-3C1D2E7B5A02");
  // Rows stay in the order they were added.
  virtual HRESULT AddRow(IDataRow** out) = 0;
  virtual HRESULT GetCount(LONG* count) = 0;
  virtual HRESULT GetRow(LONG index, IDataRow** out) = 0;
};

// Offered beside IDataRows by a table that can take a whole row in one call,
// which spares a table of a million rows a row object and a call per cell.
struct IDataRowsAppend : IUnknown {
  static constexpr IID iid = MakeGuid("6F0D27A1-58C4-4B0B-9E0A-3C1D2E7B5A04");
  // The values in column order, count at most the columns; a null or
  // VT_EMPTY value leaves its cell empty. On failure no row is added.
  virtual HRESULT AppendRow(LONG count, const VARIANT* const* values) = 0;
};

struct IDataRow : IUnknown {
  static constexpr IID iid = MakeGuid("6F0D27A1-58C4-4B0B-9E0A-3C1D2E7B5A03");
  // The column's index arrives as a VT_I4 value.
  virtual HRESULT SetValue(VARIANT column, VARIANT* value) = 0;
  virtual HRESULT SetValueByName(BSTR column, VARIANT* value) = 0;
  // A cell never set reads as VT_EMPTY. Out values are written over, not cleared first.
  virtual HRESULT GetValue(LONG column, VARIANT* value) = 0;
  virtual HRESULT GetValueByName(BSTR column, VARIANT* value) = 0;
  // The first count cells in column order, for a host that writes whole rows;
  // count may not exceed the number of columns. Every out value is set, even on failure.
  virtual HRESULT GetValues(LONG count, VARIANT* values) = 0;
};
