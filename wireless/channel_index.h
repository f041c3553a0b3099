// CChannelIndex: the index of a channel table, in two parts.
//
// The number map (TMapEx, 257 buckets) files each record under its channel
// number; a number can have several records, one for each frequency and
// band. Its node array is the order in which a table lists its records, and
// its chains are how an interface's lookup finds a channel: the newest node
// of a number first.
//
// Beside it a key index (CKeyIndex) finds a channel's record in constant
// time on the packet path, and always the record the chain walk would.
//
// Records never move between rebuilds: a table rebuilds its index whenever
// it places a record, which is rare and bounded by the number of channels.
#pragma once

#include <cstring>

#include "frame/key_index.h"
#include "frame/map_ex.h"
#include "wireless/wireless_channel.h"

namespace zemo {

class CChannelIndex {
 public:
  static constexpr uint32_t kNone = CKeyIndex::kNone;

  // Files records 0 to count - 1 anew, in descending order when asked;
  // channelOf(i) gives record i's channel. A failure leaves the index empty.
  template <class ChannelOf>
  void Rebuild(uint32_t count, bool descending, ChannelOf&& channelOf) {
    Clear();
    try {
      for (uint32_t n = 0; n < count; ++n) {
        const uint32_t i = descending ? count - 1 - n : n;
        m_byNumber.Add(channelOf(i).Channel, i);
      }
      // Walked against the order of filing, the first record of a channel
      // found is the one its chain holds first.
      for (uint32_t n = count; n-- > 0;) {
        const uint32_t i = descending ? count - 1 - n : n;
        const SWirelessChannel channel = channelOf(i);
        if (Find(channel, channelOf) != kNone) continue;
        m_keys.Reserve();
        m_keys.Insert(Tag(channel), i);
      }
    } catch (...) {
      Clear();
      throw;
    }
  }

  // The record of a channel, or kNone.
  template <class ChannelOf>
  uint32_t Find(const SWirelessChannel& channel, ChannelOf&& channelOf) const noexcept {
    return m_keys.Find(Tag(channel), [&](uint32_t i) { return channelOf(i) == channel; });
  }

  uint32_t NodeCount() const noexcept { return m_byNumber.GetCount(); }
  // The record of node n, in the order of the node array; kNone past it.
  uint32_t RecordAt(uint32_t n) const noexcept {
    auto* node = m_byNumber.GetNodeAt(n);
    return node ? node->m_value : kNone;
  }

  void Clear() noexcept {
    m_byNumber.Clear();
    m_keys.Clear();
  }

 private:
  static uint32_t Tag(const SWirelessChannel& c) noexcept {
    return CKeyIndex::HashWords(static_cast<uint16_t>(c.Channel), c.Frequency, c.Band);
  }

  TMapEx<int16_t, int16_t, uint32_t, uint32_t> m_byNumber{257};
  CKeyIndex m_keys;
};

}  // namespace zemo
