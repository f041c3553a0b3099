#include "wireless/wireless_channel_stats.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "frame/clsids.h"
#include "frame/module.h"
#include "frame/stream_persist.h"
#include "frame/task_memory.h"
#include "frame/text_export.h"
#include "frame/time_format.h"
#include "platform/strings.h"
#include "wireless/channel_naming.h"
#include "wireless/wireless_signal.h"

namespace zemo {
namespace {

constexpr uint32_t kNone = CChannelIndex::kNone;

using Stat = ZemoWirelessChannelStat;

// A dBm figure of the export: no reading shows as 0.
int ShownDbm(int16_t dbm) { return dbm == kNoDbm ? 0 : dbm; }

// Percent figures, then dBm figures, of every packet: the first packet sets
// the minimum whatever it holds; -127 dBm is no reading.
void FoldSignal(uint8_t& min, uint8_t& max, uint8_t& current, uint64_t& sum, uint8_t percent, bool first) {
  if (percent > max) max = percent;
  if (percent < min || first) min = percent;
  current = percent;
  sum += percent;
}
void FoldDbm(double& power, int16_t& min, int16_t& max, int16_t& current, int8_t dbm, bool first) {
  if (dbm == kNoDbm) return;
  power += Milliwatts(dbm);
  if (max == kNoDbm || dbm > max) max = dbm;
  if (min == kNoDbm || dbm < min || first) min = dbm;
  current = dbm;
}

// Packed fields are folded through copies.
void FoldReadings(Stat& s, uint8_t signalPercent, int8_t signalDbm, uint8_t noisePercent, int8_t noiseDbm) {
  const bool first = s.Counts.Packets == 1;
  uint8_t min = s.SignalMin, max = s.SignalMax, current = s.SignalCurrent;
  uint64_t sum = s.SignalSum;
  FoldSignal(min, max, current, sum, signalPercent, first);
  s.SignalMin = min, s.SignalMax = max, s.SignalCurrent = current, s.SignalSum = sum;
  double power = s.SignalPower;
  int16_t dmin = s.SignaldBmMin, dmax = s.SignaldBmMax, dcur = s.SignaldBmCurrent;
  FoldDbm(power, dmin, dmax, dcur, signalDbm, first);
  s.SignalPower = power, s.SignaldBmMin = dmin, s.SignaldBmMax = dmax, s.SignaldBmCurrent = dcur;

  min = s.NoiseMin, max = s.NoiseMax, current = s.NoiseCurrent, sum = s.NoiseSum;
  FoldSignal(min, max, current, sum, noisePercent, first);
  s.NoiseMin = min, s.NoiseMax = max, s.NoiseCurrent = current, s.NoiseSum = sum;
  power = s.NoisePower, dmin = s.NoisedBmMin, dmax = s.NoisedBmMax, dcur = s.NoisedBmCurrent;
  FoldDbm(power, dmin, dmax, dcur, noiseDbm, first);
  s.NoisePower = power, s.NoisedBmMin = dmin, s.NoisedBmMax = dmax, s.NoisedBmCurrent = dcur;
}

// "Min., Max., Cur., Avg." in percent, then in dBm, of signal or noise.
void PrintFigures(TextWriter& out, uint8_t min, uint8_t max, uint8_t current, uint64_t sum, double power,
                  int16_t dmin, int16_t dmax, int16_t dcur, uint64_t packets) {
  const double average = packets ? static_cast<double>(sum) / static_cast<double>(packets) : 0.0;
  const double averageDbm = packets && dmin != kNoDbm ? 10.0 * std::log10(power / static_cast<double>(packets)) : 0.0;
  out.Printf("%u\t%u\t%u\t%.0f\t%d\t%d\t%d\t%.0f\t", unsigned{min}, unsigned{max}, unsigned{current}, average,
             ShownDbm(dmin), ShownDbm(dmax), ShownDbm(dcur), averageDbm);
}

}  // namespace

// --- the channels ---

void WirelessChannelStats::Clear() noexcept {
  m_index.Clear();
  m_records.clear();
  m_rates.clear();
  m_rows.clear();
  m_updateCount = 0;
  m_rateChangeCount = 0;
}

void WirelessChannelStats::RebuildIndex() {
  m_index.Rebuild(static_cast<uint32_t>(m_records.size()), false,
                  [this](uint32_t i) { return m_records[i].Channel; });
}

uint32_t WirelessChannelStats::Find(const SWirelessChannel& channel) const noexcept {
  return m_index.Find(channel, [this](uint32_t i) { return m_records[i].Channel; });
}

// Behind the last record of a lower number: records of one number stand
// newest first.
uint32_t WirelessChannelStats::AddChannel(const SWirelessChannel& channel) {
  ++m_updateCount;
  size_t at = 0;
  for (size_t i = 0; i < m_records.size(); ++i)
    if (m_records[i].Channel.Channel < channel.Channel) at = i + 1;
  Stat record;
  std::memset(&record, 0, sizeof record);
  record.SignaldBmMin = record.SignaldBmMax = record.SignaldBmCurrent = kNoDbm;
  record.NoisedBmMin = record.NoisedBmMax = record.NoisedBmCurrent = kNoDbm;
  record.Channel = channel;
  try {
    m_records.insert(m_records.begin() + static_cast<ptrdiff_t>(at), record);
    m_rows.insert(m_rows.begin() + static_cast<ptrdiff_t>(at), Row(m_rates.size(), {0, 0}));
  } catch (const std::bad_alloc&) {
    if (m_records.size() != m_rows.size()) m_records.erase(m_records.begin() + static_cast<ptrdiff_t>(at));
    AtlThrow(E_OUTOFMEMORY);
  }
  RebuildIndex();
  return static_cast<uint32_t>(at);
}

uint32_t WirelessChannelStats::AddDataRate(ULONG rate) {
  if (m_rates.size() >= kMaxChannelDataRates) return kNone;
  // Room first, so that the rate goes into every row or none.
  try {
    m_rates.reserve(m_rates.size() + 1);
    for (Row& row : m_rows) row.reserve(row.size() + 1);
  } catch (const std::bad_alloc&) {
    AtlThrow(E_OUTOFMEMORY);
  }
  ++m_rateChangeCount;
  size_t at = 0;
  for (size_t i = 0; i < m_rates.size(); ++i)
    if (m_rates[i] < rate) at = i + 1;
  m_rates.insert(m_rates.begin() + static_cast<ptrdiff_t>(at), rate);
  for (Row& row : m_rows) row.insert(row.begin() + static_cast<ptrdiff_t>(at), {0, 0});
  return static_cast<uint32_t>(at);
}

HRESULT WirelessChannelStats::GetChannelCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = static_cast<ULONG>(m_records.size());
  });
}

HRESULT WirelessChannelStats::GetUpdateCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_updateCount;
  });
}

HRESULT WirelessChannelStats::GetRateChangeCount(ULONG* count) {
  return Locked([&] {
    CheckOut(count);
    *count = m_rateChangeCount;
  });
}

HRESULT WirelessChannelStats::GetDataRates(ULONG** rates, ULONG* count) {
  return Locked([&] {
    CheckOut(rates);
    CheckOut(count);
    GiveTaskArray(std::span<const ULONG>(m_rates), rates, count);
  });
}

HRESULT WirelessChannelStats::GetChannelStat(ULONG index, ZemoWirelessChannelStat* stat) {
  return Locked([&] {
    CheckOut(stat);
    if (index >= m_records.size()) AtlThrow(E_INVALIDARG);
    *stat = m_records[index];
  });
}

HRESULT WirelessChannelStats::GetChannelDataRates(SWirelessChannel channel, ZemoWirelessChannelDataRateStat** stats,
                                                  ULONG* count) {
  return Locked([&] {
    CheckOut(stats);
    CheckOut(count);
    const uint32_t i = Find(channel);
    if (i == kNone) AtlThrow(E_INVALIDARG);
    GiveTaskArray(std::span<const ZemoWirelessChannelDataRateStat>(m_rows[i]), stats, count);
  });
}

// --- IZemoStats ---

HRESULT WirelessChannelStats::GetContext(IZemoStatsContext** context) {
  return Locked([&] {
    CheckOut(context);
    *context = m_context;
    if (m_context) m_context->AddRef();
  });
}

HRESULT WirelessChannelStats::SetContext(IZemoStatsContext* context) {
  return Locked([&] { m_context = context; });
}

HRESULT WirelessChannelStats::Reset() {
  return Locked([&] { Clear(); });
}

// --- the packet ---

HRESULT WirelessChannelStats::ProcessPacket(IPacket* packet) {
  return Locked([&]() -> HRESULT {
    if (!packet) return E_POINTER;
    BOOL wireless = FALSE;
    CheckHr(packet->IsWireless(&wireless));
    if (!wireless) return S_FALSE;
    ComPtr<IWirelessPacket> radio;
    CheckHr(QueryTo(packet, &radio));
    USHORT rate = 0;
    SWirelessChannel channel{0, 0, 0};
    BYTE signalPercent = 0, noisePercent = 0;
    int8_t signalDbm = kNoDbmReading, noiseDbm = kNoDbmReading;
    CheckHr(radio->GetDataRate(&rate));
    CheckHr(radio->GetChannel(&channel));
    CheckHr(radio->GetSignalPercent(&signalPercent));
    CheckHr(radio->GetSignalDBm(&signalDbm));
    CheckHr(radio->GetNoisePercent(&noisePercent));
    CheckHr(radio->GetNoiseDBm(&noiseDbm));

    uint32_t index = Find(channel);
    if (index == kNone) index = AddChannel(channel);
    Stat& s = m_records[index];
    USHORT length = 0;
    CheckHr(packet->GetPacketLength(&length));
    s.Counts.Packets += 1;
    s.Counts.Bytes += length;

    auto test = [&](ULONG mask, HRESULT (IPacket::*op)(ULONG, BOOL*)) {
      BOOL set = FALSE;
      CheckHr((packet->*op)(mask, &set));
      return set != FALSE;
    };
    if (!test(kPacketStatusCrc, &IPacket::TestStatus)) {
      const BYTE* data = nullptr;
      USHORT captured = 0;
      CheckHr(packet->GetPacketData(&data));
      CheckHr(packet->GetCaptureLength(&captured));
      if (data && captured >= 2)
        CountFrameControl(s.Counts, data[0], data[1], length, [&] { return test(0x4, &IPacket::TestFlags); });
    } else {
      s.Counts.CRCErrors += 1;
    }
    if (test(0x8, &IPacket::TestFlags)) s.Counts.WEPICVErrors += 1;
    if (test(0x40, &IPacket::TestFlags))
      s.Counts.Flag40Packets += 1, s.Counts.Flag40Bytes += length;
    else
      s.Counts.NoFlag40Packets += 1, s.Counts.NoFlag40Bytes += length;

    FoldReadings(s, signalPercent, signalDbm, noisePercent, noiseDbm);
    ZemoTime time = 0;
    CheckHr(packet->GetTimeStamp(&time));
    s.Counts.LastTime = time;
    if (s.Counts.FirstTime == 0) s.Counts.FirstTime = time;

    auto known = std::find(m_rates.begin(), m_rates.end(), ULONG{rate});
    const uint32_t at = known != m_rates.end() ? static_cast<uint32_t>(known - m_rates.begin()) : AddDataRate(rate);
    if (at != kNone) {
      m_rows[index][at].Packets += 1;
      m_rows[index][at].Bytes += length;
    }
    ++m_updateCount;
    return S_OK;
  });
}

// --- the stream ---

HRESULT WirelessChannelStats::GetClassID(CLSID* out) {
  return Unlocked([&] {
    CheckOut(out);
    *out = CLSID_WirelessChannelStats;
  });
}

HRESULT WirelessChannelStats::SaveDeltas(IStream* stream, ZemoTime* since) {
  return Locked([&] {
    if (!stream || !since) AtlThrow(E_POINTER);
    WriteValue(stream, static_cast<uint32_t>(m_records.size()));
    WriteRecords(stream, std::span<const Stat>(m_records));
    WriteValue(stream, m_updateCount);
    WriteValue(stream, static_cast<uint32_t>(m_rates.size()));
    WriteRecords(stream, std::span<const ULONG>(m_rates));
    WriteValue(stream, m_rateChangeCount);
    WriteValue(stream, static_cast<uint32_t>(m_rows.size()));
    for (const Row& row : m_rows) {
      WriteValue(stream, static_cast<uint32_t>(row.size()));
      WriteRecords(stream, std::span<const ZemoWirelessChannelDataRateStat>(row));
    }
  });
}

// What is read is installed as it comes, with a row for each record and an
// entry for each rate, so that a load that fails half way leaves tables a
// packet can be counted into. A row of another length than the rates is
// malformed.
void WirelessChannelStats::LoadStream(IStream* stream) {
  Clear();
  m_records = ReadRecordArray<Stat>(stream, ReadValue<uint32_t>(stream));
  m_rows.assign(m_records.size(), Row{});
  RebuildIndex();
  m_updateCount = ReadValue<uint32_t>(stream);
  m_rates = ReadRecordArray<ULONG>(stream, ReadValue<uint32_t>(stream));
  for (Row& row : m_rows) row.assign(m_rates.size(), {0, 0});
  m_rateChangeCount = ReadValue<uint32_t>(stream);
  if (ReadValue<uint32_t>(stream) != m_rows.size()) AtlThrow(E_FAIL);
  for (Row& row : m_rows) {
    if (ReadValue<uint32_t>(stream) != m_rates.size()) AtlThrow(E_FAIL);
    ReadRecords(stream, std::span<ZemoWirelessChannelDataRateStat>(row));
  }
}

HRESULT WirelessChannelStats::Load(IStream* stream) {
  return Locked([&] {
    if (!stream) AtlThrow(E_POINTER);
    LoadStream(stream);
  });
}

// --- no XML form ---

HRESULT WirelessChannelStats::Load(IUnknown* document, IUnknown* node) {
  return document && node ? E_NOTIMPL : E_POINTER;
}

HRESULT WirelessChannelStats::Save(IUnknown* document, IUnknown* node, BOOL) {
  return document && node ? E_NOTIMPL : E_POINTER;
}

HRESULT WirelessChannelStats::SaveDeltas(IUnknown* document, IUnknown* node, ZemoTime* since) {
  return document && node && since ? E_NOTIMPL : E_POINTER;
}

// --- the text export ---

HRESULT WirelessChannelStats::Save(LPCOLESTR fileName, BOOL) {
  return Locked([&] {
    CheckExportExtension(fileName, kExportTxt);
    return WriteTextFile(fileName, FileOpenStyle::Runtime, [&](TextWriter& out) {
      std::string rates;
      for (ULONG r : m_rates) {
        const std::string m = FormatDataRate(r);
        rates += m + " Mbits/s Packets\t" + m + " Mbits/s Bytes\t";
      }
      out.Printf(
          "Channel\tFreq\tBand\tPackets\tBytes\tData Packets\tData Bytes\tMgmt Packets\tMgmt Bytes\tCtrl "
          "Packets\tCtrl Bytes\tLocal Packets\tLocal Bytes\tFrom DS Packets\tFrom DS Bytes\tTo DS Packets\tTo DS "
          "Bytes\tDS-DS Packets\tDS-DS Bytes\tRetry Packets\tRetry Bytes\tWEP Packets\tWEP Bytes\tOrder "
          "Packets\tOrder Bytes\tCRC Errors\t%sWEP ICV Errors\tMin. Signal\tMax. Signal\tCur. Signal\tAvg. "
          "Signal\tMin. Signal dBm\tMax. Signal dBm\tCur. Signal dBm\tAvg. Signal dBm\tMin. Noise\tMax. "
          "Noise\tCur. Noise\tAvg. Noise\tMin. Noise dBm\tMax. Noise dBm\tCur. Noise dBm\tAvg. Noise "
          "dBm\tCreated\tUpdated\n",
          rates.c_str());
      for (size_t i = 0; i < m_records.size(); ++i) {
        const Stat& s = m_records[i];
        const ZemoWirelessChannelCounts& c = s.Counts;
        out.Printf("%d\t%u\t%u\t", int{s.Channel.Channel}, unsigned{s.Channel.Frequency}, unsigned{s.Channel.Band});
        for (uint64_t v : {c.Packets, c.Bytes, c.DataPackets, c.DataBytes, c.MgmtPackets, c.MgmtBytes, c.CtrlPackets,
                           c.CtrlBytes, c.LocalPackets, c.LocalBytes, c.FromDSPackets, c.FromDSBytes, c.ToDSPackets,
                           c.ToDSBytes, c.DSDSPackets, c.DSDSBytes, c.RetryPackets, c.RetryBytes, c.ProtectedPackets,
                           c.ProtectedBytes, c.OrderPackets, c.OrderBytes, c.CRCErrors}) {
          out.U64(v);
          out.Char('\t');
        }
        for (const ZemoWirelessChannelDataRateStat& r : m_rows[i]) {
          out.U64(r.Packets);
          out.Char('\t');
          out.U64(r.Bytes);
          out.Char('\t');
        }
        out.U64(c.WEPICVErrors);
        out.Char('\t');
        PrintFigures(out, s.SignalMin, s.SignalMax, s.SignalCurrent, s.SignalSum, s.SignalPower, s.SignaldBmMin,
                     s.SignaldBmMax, s.SignaldBmCurrent, c.Packets);
        PrintFigures(out, s.NoiseMin, s.NoiseMax, s.NoiseCurrent, s.NoiseSum, s.NoisePower, s.NoisedBmMin,
                     s.NoisedBmMax, s.NoisedBmCurrent, c.Packets);
        out.Printf("%s\t%s\n", LocalDateTime(c.FirstTime).c_str(), LocalDateTime(c.LastTime).c_str());
      }
    });
  });
}

// --- trackers ---

// The tracker binds itself through the context, whose lock comes before
// ours, so the tracker is made without our lock.
HRESULT WirelessChannelStats::CreateTracker(VARIANT description, IZemoStatsTracker** tracker) {
  IZemoStatsContext* context = nullptr;
  HRESULT hr = Locked([&] {
    CheckOut(tracker);
    context = m_context;
  });
  if (FAILED(hr)) return hr;
  return Boundary([&] {
    CVariant label;
    CheckHr(VariantChangeType(&label, &description, 0, VT_BSTR));
    const std::u16string_view text = label.bstrVal ? std::u16string_view(label.bstrVal, SysStringLen(label.bstrVal))
                                                   : std::u16string_view();
    ComPtr<IWirelessChannelStatsTracker> keyed;
    CheckHr(CreateModuleInstance(CLSID_WirelessChannelStatsTracker, IWirelessChannelStatsTracker::iid,
                                 keyed.OutVoid()));
    CheckHr(keyed->SetChannel(ParseChannel(text)));
    ComPtr<IZemoStatsTracker> made = keyed.Query<IZemoStatsTracker>();
    CheckHr(made->SetContext(context));
    *tracker = made.Detach();
  });
}

}  // namespace zemo
