// CaptureFacts: what a host knows of a capture beyond its packets (where it
// comes from, its link type, the link's speed, the file's size), offered to
// the summary as a group of its own. A host registers it on a context's
// site as the service kServiceUpdateSummaryStats; the summary updater hands
// it the snapshot on each update.
#pragma once

#include <cstdint>
#include <string>

#include "frame/stats_interfaces.h"
#include "platform/object.h"

namespace zemo {

namespace capture_items {
// The group; its label names the source ("File trace.pcap").
inline constexpr GUID kGroup = MakeGuid("BDE7310D-FF9E-4486-A150-08409F83DE67");
inline constexpr GUID kLinkType = MakeGuid("47BF3098-C73E-425E-800E-0FD5027D7F68");  // labelled with its name
inline constexpr GUID kLinkSpeed = MakeGuid("2C79D0C6-EA8B-4481-B5EF-5945E41941A2");  // bits per second
inline constexpr GUID kFileSize = MakeGuid("7E94B2C3-EBC1-4C0F-9759-5F595F4D2180");
inline constexpr GUID kInterfaceReceived = MakeGuid("FDD49B65-3BCB-4411-A90E-027A5D637CD4");
}  // namespace capture_items

struct CaptureFactsData {
  std::u16string source;         // "File trace.pcap", "Interface eth0"
  uint32_t linkType = 0;         // the capture's link type number
  std::u16string linkTypeName;   // its name ("EN10MB")
  uint64_t linkSpeed = 0;        // bits per second; 0: unknown, no item
  uint64_t fileSize = 0;         // bytes; 0: not a file, or unknown, no item
  bool haveReceived = false;     // whether the interface told what it received
  uint64_t interfaceReceived = 0;
};

class CaptureFacts final : public Object<CaptureFacts, IUpdateSummaryStats> {
 public:
  void Set(const CaptureFactsData& facts);
  CaptureFactsData Get() const;

  // Writes the group and its items; an item without a value is left out.
  HRESULT UpdateSummaryStats(IUnknown* snapshot) override;

 private:
  CaptureFactsData m_facts;
};

}  // namespace zemo
