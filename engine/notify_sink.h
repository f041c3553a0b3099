// NotifySink: an INotify sink that keeps every notification it is given, so
// that a host or a test can read them back in order.
#pragma once

#include <string>
#include <vector>

#include "frame/engine_interfaces.h"
#include "platform/object.h"

inline constexpr char16_t kProgIdNotifySink[] = u"ZemoEngine.NotifySink";

namespace zemo {

struct Notification {
  GUID context;
  GUID source;
  ULONG value;
  ZemoTime time;
  LONG severity;
  std::u16string shortMessage;  // a null message is kept as the empty text
  std::u16string longMessage;
};

class NotifySink final : public Object<NotifySink, INotify> {
 public:
  HRESULT Notify(const GUID& context, const GUID& source, ULONG value, ZemoTime time, LONG severity,
                 LPCOLESTR shortMessage, LPCOLESTR longMessage) override;

  size_t Count() const;
  // The notification at index, oldest first; raises E_INVALIDARG past the end.
  Notification At(size_t index) const;
  std::vector<Notification> All() const;
  void Clear();
  // What Notify answers from now on, for hosts that test a failing sink.
  void SetResult(HRESULT result);

 private:
  std::vector<Notification> m_received;
  HRESULT m_result = S_OK;
};

}  // namespace zemo
