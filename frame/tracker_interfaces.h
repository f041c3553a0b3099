// The tracker interfaces: a tracker follows one number of one statistic
// through time, and a statistic that knows things worth tracking makes
// trackers for them through IZemoStatsTrackerFactory.
#pragma once

#include "frame/iids.h"
#include "identity/media_specs.h"
#include "platform/interfaces.h"
#include "platform/variant.h"

struct IZemoStatsContext;

struct IZemoStatsTracker : IUnknown {
  static constexpr IID iid = IID_IZemoStatsTracker;
  virtual HRESULT GetStatCount(LONG* count) = 0;
  virtual HRESULT GetStatID(LONG index, VARIANT* id) = 0;
  virtual HRESULT GetStatName(VARIANT id, BSTR* name) = 0;
  virtual HRESULT GetStat(VARIANT* id) = 0;
  virtual HRESULT SetStat(VARIANT id) = 0;
  virtual HRESULT Update(ZemoTime time) = 0;
  virtual HRESULT Reset() = 0;
  virtual HRESULT GetValue(ZemoTime time, double* value) = 0;
  virtual HRESULT GetValueDelta(ZemoTime start, ZemoTime end, double* value) = 0;
  virtual HRESULT GetValueRate(ZemoTime time, double* value) = 0;
  virtual HRESULT GetMaxHistory(LONG* seconds) = 0;
  virtual HRESULT GetHistory(LONG* seconds) = 0;
  virtual HRESULT SetHistory(LONG seconds) = 0;
  virtual HRESULT GetTimeRange(ZemoTime* first, ZemoTime* last) = 0;
  virtual HRESULT GetLastTime(ZemoTime* time) = 0;
  // Binds the tracker to the statistic it samples, found in the context.
  virtual HRESULT SetContext(IZemoStatsContext* context) = 0;
  virtual HRESULT GetContext(IZemoStatsContext** context) = 0;
};

// The key of a node tracker: the address whose record it samples.
struct INodeStatsTracker : IUnknown {
  static constexpr IID iid = IID_INodeStatsTracker;
  virtual HRESULT GetKey(MediaSpec* key) = 0;
  virtual HRESULT SetKey(MediaSpec key) = 0;
  virtual HRESULT GetStatType(LONG* type) = 0;
  virtual HRESULT SetStatType(LONG type) = 0;
};

// The key of a protocol tracker: a type-9 protocol spec.
struct IProtocolStatsTracker : IUnknown {
  static constexpr IID iid = IID_IProtocolStatsTracker;
  virtual HRESULT GetKey(MediaSpec* key) = 0;
  virtual HRESULT SetKey(MediaSpec key) = 0;
  virtual HRESULT GetStatType(LONG* type) = 0;
  virtual HRESULT SetStatType(LONG type) = 0;
};

struct IZemoStatsTrackerFactory : IUnknown {
  static constexpr IID iid = IID_IZemoStatsTrackerFactory;
  // description: a VT_UNKNOWN or VT_DISPATCH holding an XML document whose
  // document element names the tracked thing.
  virtual HRESULT CreateTracker(VARIANT description, IZemoStatsTracker** tracker) = 0;
};
