// The interfaces of a table statistic's limit: the settings object the host
// hands in, and the limit every table statistic carries.
#pragma once

#include "frame/engine_interfaces.h"
#include "frame/iids.h"
#include "platform/interfaces.h"

struct IZemoStatsLimitSettings : IUnknown {
  static constexpr IID iid = IID_IZemoStatsLimitSettings;
  virtual HRESULT GetEnabled(LONG* enabled) = 0;
  virtual HRESULT SetEnabled(LONG enabled) = 0;
  virtual HRESULT GetLimit(ULONG* limit) = 0;
  virtual HRESULT SetLimit(ULONG limit) = 0;
  virtual HRESULT GetNotify(LONG* notify, LONG* severity) = 0;
  virtual HRESULT SetNotify(LONG notify, LONG severity) = 0;
  virtual HRESULT GetReset(LONG* reset) = 0;
  virtual HRESULT SetReset(LONG reset) = 0;
};

struct IZemoStatsLimit : IUnknown {
  static constexpr IID iid = IID_IZemoStatsLimit;
  virtual HRESULT GetSettings(IZemoStatsLimitSettings** settings) = 0;
  virtual HRESULT SetSettings(IZemoStatsLimitSettings* settings) = 0;
  virtual HRESULT GetContextId(GUID* id) = 0;
  virtual HRESULT SetContextId(REFGUID id) = 0;
  virtual HRESULT GetNotifySink(INotify** sink) = 0;
  virtual HRESULT SetNotifySink(INotify* sink) = 0;
  virtual HRESULT GetResetCount(ULONG* count) = 0;
  // Takes no reference: the linked statistic must outlive this one.
  virtual HRESULT AddLinkedStatistic(IUnknown* stats) = 0;
  virtual HRESULT Pause() = 0;
  virtual HRESULT Reset() = 0;
};
