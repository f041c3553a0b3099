// IWirelessNodeStats, the first generation's interface of the 802.11 node
// statistics, which the second generation offers too, and the record of
// node totals that both give. The node and data rate records are declared
// with the classes that fill them.
#pragma once

#include "frame/iids.h"
#include "platform/interfaces.h"

struct IEntityTable;
struct ZemoWirelessNodeStatEntry;
struct ZemoWirelessNodeDataRateStat;

#pragma pack(push, 1)

// One tie of the association table: record indexes into a node table,
// 0xFFFFFFFF where unknown.
struct ZemoWirelessNodeAssociation {
  ULONG ESSIDIndex;
  ULONG BSSIDIndex;
  ULONG NodeIndex;
  ULONG Strength;  // 2 firm, 1 loose

  friend bool operator==(const ZemoWirelessNodeAssociation& a, const ZemoWirelessNodeAssociation& b) {
    return a.ESSIDIndex == b.ESSIDIndex && a.BSSIDIndex == b.BSSIDIndex && a.NodeIndex == b.NodeIndex &&
           a.Strength == b.Strength;
  }
};
static_assert(sizeof(ZemoWirelessNodeAssociation) == 16);

#pragma pack(pop)

inline constexpr ULONG kStrengthLoose = 1;
inline constexpr ULONG kStrengthFirm = 2;

struct IWirelessNodeAssociationTable : IUnknown {
  static constexpr IID iid = IID_IWirelessNodeAssociationTable;
  virtual HRESULT GetCount(ULONG* count) = 0;
  virtual HRESULT GetAssociation(ULONG index, ZemoWirelessNodeAssociation* record) = 0;
};

// 14 counts of the nodes seen, in this order.
struct ZemoWirelessNodeTotals {
  ULONG ESSIDs;  // ESSID nodes with a firm association, less AdHocNetworks
  ULONG ESSIDsWithoutAssociation;
  ULONG AdHocNetworks;
  ULONG AccessPoints;
  ULONG Stations;  // stations and ad hoc stations
  ULONG TrustedAccessPoints;
  ULONG KnownAccessPoints;
  ULONG UnknownAccessPoints;
  ULONG TrustedAdHocStations;
  ULONG KnownAdHocStations;
  ULONG UnknownAdHocStations;
  ULONG TrustedStations;
  ULONG KnownStations;
  ULONG UnknownStations;
};
static_assert(sizeof(ZemoWirelessNodeTotals) == 56);

struct IWirelessNodeStats : IUnknown {
  static constexpr IID iid = IID_IWirelessNodeStats;
  virtual HRESULT GetEntityTable(IEntityTable** table) = 0;
  virtual HRESULT GetAssociationTable(IWirelessNodeAssociationTable** table) = 0;
  virtual HRESULT GetNodeCount(ULONG* count) = 0;
  virtual HRESULT GetRateChangeCount(ULONG* count) = 0;
  virtual HRESULT GetUnknownBSSIDIndex(ULONG* index) = 0;
  virtual HRESULT GetUnknownESSIDIndex(ULONG* index) = 0;
  virtual HRESULT GetNodeIndex(ULONG entity, ULONG* index, BOOL* found) = 0;
  virtual HRESULT GetNodeStat(ULONG index, ZemoWirelessNodeStatEntry* record) = 0;
  virtual HRESULT GetTotals(ZemoWirelessNodeTotals* totals) = 0;
  // Arrays in task memory, which the caller frees; null and 0 when empty.
  virtual HRESULT GetDataRates(ULONG** rates, ULONG* count) = 0;
  virtual HRESULT GetNodeDataRates(ULONG index, ZemoWirelessNodeDataRateStat** rates, ULONG* count) = 0;
};

struct ZemoWirelessNodeStat2;

// The second generation: the same operations, with the 470-byte record.
struct IWirelessNodeStats2 : IUnknown {
  static constexpr IID iid = IID_IWirelessNodeStats2;
  virtual HRESULT GetEntityTable(IEntityTable** table) = 0;
  virtual HRESULT GetAssociationTable(IWirelessNodeAssociationTable** table) = 0;
  virtual HRESULT GetNodeCount(ULONG* count) = 0;
  virtual HRESULT GetRateChangeCount(ULONG* count) = 0;
  virtual HRESULT GetUnknownBSSIDIndex(ULONG* index) = 0;
  virtual HRESULT GetUnknownESSIDIndex(ULONG* index) = 0;
  virtual HRESULT GetNodeIndex(ULONG entity, ULONG* index, BOOL* found) = 0;
  virtual HRESULT GetNodeStat(ULONG index, ZemoWirelessNodeStat2* record) = 0;
  virtual HRESULT GetTotals(ZemoWirelessNodeTotals* totals) = 0;
  virtual HRESULT GetDataRates(ULONG** rates, ULONG* count) = 0;
  virtual HRESULT GetNodeDataRates(ULONG index, ZemoWirelessNodeDataRateStat** rates, ULONG* count) = 0;
};
