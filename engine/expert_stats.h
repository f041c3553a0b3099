// ExpertStats (korvant.ExpertStats): what the frame decoder found wrong in a
// capture's frames, counted by kind, the way an analyser's expert
// information sums up problems. It sees no packets: the host counts each
// decoded frame's faults into it. In a context it is the statistic the
// summary updater offers the snapshot to first, and it adds a group of its
// own counts there.
#pragma once

#include <array>

#include "engine/frame_decoder.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "platform/object.h"

inline constexpr CLSID CLSID_KorvantExpertStats = MakeGuid("5028BE89-9DD3-489F-81BB-494DBD9F16F7");

namespace zemo {

namespace expert_items {
inline constexpr GUID kGroup = MakeGuid("5EF8A51F-A568-433F-B292-A2CB24A29188");
// One item for each FrameFault bit, from the lowest.
inline constexpr GUID kFaults[kFrameFaultKinds] = {
    MakeGuid("9EDD0396-CA7D-42FD-97DB-10711F264620"),  // malformed
    MakeGuid("39865402-C0E5-4F9C-A389-09A2E0AEE988"),  // truncated
    MakeGuid("7430433A-0483-4E63-A10A-8327F1262893"),  // unknown link type
    MakeGuid("A7632543-0B7B-47C1-93CA-6FA688E5FBBC"),  // bad header version
    MakeGuid("3D7DCA1A-CC88-496E-90AF-B5038BB1E513"),  // counted short
};
}  // namespace expert_items

class ExpertStats final
    : public Object<ExpertStats, IZemoStats, IUpdateSummaryStats, IPersistStream, IPersistXml> {
 public:
  using Counts = std::array<uint64_t, kFrameFaultKinds>;
  static constexpr ULONG kStreamVersion = 1;

  // One frame's faults (FrameFault bits): each kind it shows counts once.
  void Count(uint32_t faults);
  Counts Read() const;

  // IZemoStats: Reset clears the counts.
  HRESULT GetContext(IZemoStatsContext** context) override;
  HRESULT SetContext(IZemoStatsContext* context) override;
  HRESULT Reset() override;

  // IUpdateSummaryStats: the group and one packet count for each kind.
  HRESULT UpdateSummaryStats(IUnknown* snapshot) override;

  // IPersistStream: version, number of kinds, the counts. IPersistXml: an
  // element `expertstats` with a child of each count.
  HRESULT GetClassID(CLSID* out) override;
  HRESULT IsDirty() override { return S_OK; }
  HRESULT Load(IStream* stream) override;
  HRESULT Save(IStream* stream, BOOL clearDirty) override;
  HRESULT GetSizeMax(ULARGE_INTEGER* size) override;
  HRESULT Load(IUnknown* document, IUnknown* node) override;
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL flag) override;

 private:
  IZemoStatsContext* m_context = nullptr;  // no reference held
  Counts m_counts{};
};

}  // namespace zemo
