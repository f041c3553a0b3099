#include "engine/adapter_info.h"

#include <cstring>

#include "platform/strings.h"

namespace zemo {
namespace {

template <class T>
void CopyOut(const std::vector<T>& from, T** to, ULONG* count) {
  CheckOut(to);
  CheckOut(count);
  *count = 0;
  if (from.empty()) return;
  auto* copy = static_cast<T*>(CoTaskMemAlloc(from.size() * sizeof(T)));
  if (!copy) AtlThrow(E_OUTOFMEMORY);
  std::memcpy(copy, from.data(), from.size() * sizeof(T));
  *to = copy;
  *count = static_cast<ULONG>(from.size());
}

}  // namespace

void AdapterInfo::SetMediaType(ULONG type) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_mediaType = type;
}

void AdapterInfo::SetMediaSubType(ULONG subType) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_mediaSubType = subType;
}

void AdapterInfo::SetLinkSpeed(ULONGLONG bitsPerSecond) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_linkSpeed = bitsPerSecond;
}

void AdapterInfo::SetChannelNumbers(std::span<const ULONG> numbers) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_channelNumbers.assign(numbers.begin(), numbers.end());
}

void AdapterInfo::SetWirelessChannels(std::span<const SWirelessChannel> channels) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_channels.assign(channels.begin(), channels.end());
}

void AdapterInfo::SetDataRates(std::span<const ULONG> halfMegabits) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_dataRates.assign(halfMegabits.begin(), halfMegabits.end());
}

HRESULT AdapterInfo::GetMediaType(ULONG* type) {
  return Locked([&] {
    CheckOut(type);
    *type = m_mediaType;
  });
}

HRESULT AdapterInfo::GetMediaSubType(ULONG* subType) {
  return Locked([&] {
    CheckOut(subType);
    *subType = m_mediaSubType;
  });
}

HRESULT AdapterInfo::GetLinkSpeed(ULONGLONG* speed) {
  return Locked([&] {
    CheckOut(speed);
    *speed = m_linkSpeed;
  });
}

HRESULT AdapterInfo::GetChannelNumbers(ULONG* count, ULONG** numbers) {
  return Locked([&] { CopyOut(m_channelNumbers, numbers, count); });
}

HRESULT AdapterInfo::GetWirelessChannels(SWirelessChannel** channels, ULONG* count) {
  return Locked([&] { CopyOut(m_channels, channels, count); });
}

HRESULT AdapterInfo::GetDataRates(ULONG** rates, ULONG* count) {
  return Locked([&] { CopyOut(m_dataRates, rates, count); });
}

}  // namespace zemo
