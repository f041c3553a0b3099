#include "wireless/node_records.h"

namespace zemo {

const char* NodeTypeText(uint8_t type) {
  switch (type) {
    case kNodeTypeAP: return "AP";
    case kNodeTypeESSID: return "ESSID";
    case kNodeTypeSTA: return "STA";
    case kNodeTypeAdHoc: return "ADHOC";
    default: return "";
  }
}

const char* EncryptionText(uint8_t type) {
  switch (type) {
    case 1: return "WEP";
    case 2: return "CKIP";
    case 3: return "TKIP";
    default: return "";
  }
}

const char* AuthenticationText(uint8_t type) {
  switch (type) {
    case 1: return "EAP";
    case 2: return "LEAP";
    case 3: return "PEAP";
    case 4: return "EAPTLS";
    default: return "";
  }
}

const ByteString& UnknownESSIDName() {
  static const ByteString name(kUnknownESSID, sizeof kUnknownESSID - 1);
  return name;
}

MediaSpec UnknownBSSIDSpec() noexcept {
  constexpr uint32_t kTypePhysical = 13;
  MediaSpec s{};
  s.fClass = 2;
  s.fType = kTypePhysical;
  s.fMask = MediaSpecFullMask(kTypePhysical);
  return s;
}

bool IsUsableESSID(const uint8_t* name, size_t length) noexcept {
  if (length == 1 && name[0] == 0x20) return false;
  if (length == 32)
    for (size_t i = 0; i < length; ++i)
      if (name[i] < 0x21 || name[i] > 0x7E) return false;
  return true;
}

}  // namespace zemo
