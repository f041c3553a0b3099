#include "engine/notify_sink.h"

namespace zemo {

HRESULT NotifySink::Notify(const GUID& context, const GUID& source, ULONG value, ZemoTime time, LONG severity,
                           LPCOLESTR shortMessage, LPCOLESTR longMessage) {
  return Locked([&] {
    m_received.push_back({context, source, value, time, severity, shortMessage ? shortMessage : u"",
                          longMessage ? longMessage : u""});
    return m_result;
  });
}

size_t NotifySink::Count() const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return m_received.size();
}

Notification NotifySink::At(size_t index) const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  if (index >= m_received.size()) AtlThrow(E_INVALIDARG);
  return m_received[index];
}

std::vector<Notification> NotifySink::All() const {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  return m_received;
}

void NotifySink::Clear() {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_received.clear();
}

void NotifySink::SetResult(HRESULT result) {
  std::lock_guard<CObjectLock> hold(ObjectLock());
  m_result = result;
}

}  // namespace zemo
