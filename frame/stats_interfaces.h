// The small interfaces every statistic implements, and the context's own.
#pragma once

#include "frame/iids.h"
#include "frame/packet.h"
#include "platform/interfaces.h"

struct IZemoStatsContext;
struct IEntityTable;
struct ITupleTable;
struct IAdapterInfo;

struct IZemoStats : IUnknown {
  static constexpr IID iid = IID_IZemoStats;
  virtual HRESULT GetContext(IZemoStatsContext** context) = 0;
  // Stores the context without a reference and configures from it.
  virtual HRESULT SetContext(IZemoStatsContext* context) = 0;
  virtual HRESULT Reset() = 0;
};

struct IProcessPacket : IUnknown {
  static constexpr IID iid = IID_IProcessPacket;
  // S_FALSE for a packet the statistic skips.
  virtual HRESULT ProcessPacket(IPacket* packet) = 0;
};

struct IProcessTime : IUnknown {
  static constexpr IID iid = IID_IProcessTime;
  virtual HRESULT ProcessTime(ZemoTime now) = 0;
};

struct IResetProcessing : IUnknown {
  static constexpr IID iid = IID_IResetProcessing;
  virtual HRESULT Reset() = 0;
};

struct IResetStatistics : IUnknown {
  static constexpr IID iid = IID_IResetStatistics;
  virtual HRESULT Reset() = 0;
};

struct IPacketProcessorEvents : IUnknown {
  static constexpr IID iid = IID_IPacketProcessorEvents;
  virtual HRESULT OnStartProcessing(ZemoTime time) = 0;
  virtual HRESULT OnStopProcessing(ZemoTime time) = 0;
  virtual HRESULT OnResetProcessing() = 0;
};

struct IUpdateSummaryStats : IUnknown {
  static constexpr IID iid = IID_IUpdateSummaryStats;
  // The argument offers ISummaryStatsSnapshot.
  virtual HRESULT UpdateSummaryStats(IUnknown* snapshot) = 0;
};

struct IStatsUpdater : IUnknown {
  static constexpr IID iid = IID_IStatsUpdater;
  virtual HRESULT Update(IZemoStatsContext* context) = 0;
};

struct IZemoStatsContext : IUnknown {
  static constexpr IID iid = IID_IZemoStatsContext;
  virtual HRESULT GetStatsAt(ULONG index, IZemoStats** stats) = 0;
  virtual HRESULT GetStatsCount(ULONG* count) = 0;
  virtual HRESULT GetStats(REFCLSID key, REFIID iid, void** out) = 0;
  virtual HRESULT AddStats(REFCLSID key, IZemoStats* stats) = 0;
  virtual HRESULT RemoveStats(REFCLSID key) = 0;
  virtual HRESULT RemoveAllStats() = 0;
  virtual HRESULT Reset() = 0;
  virtual HRESULT GetMediaType(ULONG* type) = 0;
  virtual HRESULT SetMediaType(ULONG type) = 0;
  virtual HRESULT GetMediaSubType(ULONG* subType) = 0;
  virtual HRESULT SetMediaSubType(ULONG subType) = 0;
  virtual HRESULT GetLinkSpeed(ULONGLONG* speed) = 0;
  virtual HRESULT SetLinkSpeed(ULONGLONG speed) = 0;
  virtual HRESULT GetEntityTable(IEntityTable** table) = 0;
  virtual HRESULT GetTupleTable(ITupleTable** table) = 0;
  virtual HRESULT GetStartDateTime(ZemoTime* time) = 0;
  virtual HRESULT SetStartDateTime(ZemoTime time) = 0;
  virtual HRESULT GetStopDateTime(ZemoTime* time) = 0;
  virtual HRESULT SetStopDateTime(ZemoTime time) = 0;
  virtual HRESULT GetDuration(ULONGLONG* duration) = 0;
  virtual HRESULT GetTotalPackets(ULONGLONG* packets) = 0;
  virtual HRESULT GetTotalBytes(ULONGLONG* bytes) = 0;
  virtual HRESULT GetStatsUpdater(IUnknown** updater) = 0;
  virtual HRESULT SetStatsUpdater(IUnknown* updater) = 0;
  virtual HRESULT UpdateStats() = 0;
  virtual HRESULT GetAdapterInfo(IAdapterInfo** info) = 0;
  virtual HRESULT SetAdapterInfo(IAdapterInfo* info) = 0;
  virtual HRESULT AddStatsOrder(REFCLSID first, REFCLSID second) = 0;
};

struct IZemoStatsContextCollection : IUnknown {
  static constexpr IID iid = IID_IZemoStatsContextCollection;
  virtual HRESULT GetContextCount(LONG* count) = 0;
  virtual HRESULT GetContextAt(LONG index, IZemoStatsContext** context) = 0;
  virtual HRESULT AddContext(IZemoStatsContext* context) = 0;
  virtual HRESULT RemoveAllContexts() = 0;
};
