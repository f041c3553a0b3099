// The interfaces of the channel statistics and of their tracker.
//
// Arrays go out in task memory (CoTaskMemAlloc), which the caller frees; an
// empty one goes out as a null pointer and a count of 0.
#pragma once

#include "frame/iids.h"
#include "identity/media_specs.h"
#include "platform/interfaces.h"
#include "wireless/channel_records.h"

// Channels with the 300-byte record of the first generation.
struct IWirelessChannelStats : IUnknown {
  static constexpr IID iid = IID_IWirelessChannelStats;
  virtual HRESULT GetChannelCount(ULONG* count) = 0;
  // Changes with every packet and every new channel.
  virtual HRESULT GetUpdateCount(ULONG* count) = 0;
  // Changes with every new data rate.
  virtual HRESULT GetRateChangeCount(ULONG* count) = 0;
  // Every data rate seen, ascending, in half megabits per second.
  virtual HRESULT GetDataRates(ULONG** rates, ULONG* count) = 0;
  virtual HRESULT GetChannelStat(ULONG index, ZemoWirelessChannelStat* stat) = 0;
  // One entry for each data rate, in the order of GetDataRates.
  virtual HRESULT GetChannelDataRates(SWirelessChannel channel, ZemoWirelessChannelDataRateStat** stats,
                                      ULONG* count) = 0;
};

// Channels with the 1603-byte record of the second generation, and the
// access points of each channel as the node statistics report them.
struct IWirelessChannelStats2 : IUnknown {
  static constexpr IID iid = IID_IWirelessChannelStats2;
  virtual HRESULT GetChannelCount(ULONG* count) = 0;
  virtual HRESULT GetUpdateCount(ULONG* count) = 0;
  virtual HRESULT AddChannelNode(SWirelessChannel channel, const MediaSpec* node) = 0;
  virtual HRESULT RemoveChannelNode(SWirelessChannel channel, const MediaSpec* node) = 0;
  virtual HRESULT GetChannelStat2(ULONG index, ZemoWirelessChannelStatEntry2* stat) = 0;
  virtual HRESULT GetChannelNodeCount(SWirelessChannel channel, ULONG* count) = 0;
  // 0xFFFFFFFF when the channel's list does not hold the node.
  virtual HRESULT GetChannelNodeIndex(SWirelessChannel channel, const MediaSpec* node, ULONG* index) = 0;
  virtual HRESULT GetMaxChannelNodeCount(ULONG* count) = 0;
  virtual HRESULT GetDataRates(ULONG** rates, ULONG* count) = 0;
  virtual HRESULT GetChannelDataRates(SWirelessChannel channel, ZemoWirelessChannelDataRateStat** stats,
                                      ULONG* count) = 0;
};

// The key of a channel tracker.
struct IWirelessChannelStatsTracker : IUnknown {
  static constexpr IID iid = IID_IWirelessChannelStatsTracker;
  virtual HRESULT GetChannel(SWirelessChannel* channel) = 0;
  virtual HRESULT SetChannel(SWirelessChannel channel) = 0;
  virtual HRESULT GetStatType(LONG* type) = 0;
  virtual HRESULT SetStatType(LONG type) = 0;
};
