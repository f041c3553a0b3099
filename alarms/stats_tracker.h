// TStatsTracker: the object every tracker class is, to the line: the ring of
// samples (CTrackerRing) behind IZemoStatsTracker, the binding to a context,
// ICloneable and the frame of IPersistXml. A tracker class gives only what
// identifies the tracked thing, the table of numbers it can track and where
// a sample comes from:
//
//   class NodeStatsTracker final : public TStatsTracker<NodeStatsTracker, INodeStatsTracker> {
//    public:
//     static constexpr const CLSID& kClsid = ...;
//     static constexpr char16_t kXmlElement[] = u"...";   // its element in IPersistXml
//     using Source = ...;                     // what one sample is computed from
//     LONG StatCount() const;                 // GetStatCount
//     CVariant StatId(LONG index) const;      // GetStatID; raises for a bad index
//     const char16_t* StatName(LONG id) const;  // GetStatName; raises for an unknown id
//     HRESULT Bind(IZemoStatsContext*);       // SetContext: finds the statistic
//     HRESULT Read(Source&);                  // the reads before the ring moves; S_FALSE:
//                                             //   nothing to sample yet, and Update gives S_OK
//     double SampleOf(const Source&);         // raises E_FAIL for a stat it does not know
//     void CopyTo(IZemoStatsTracker* clone);  // Clone: key and stat through the clone's interfaces
//     void SaveXml(IXMLDOMDocument*, IXMLDOMElement*);  // attributes and children of its element
//     void LoadXml(IXMLDOMElement*);
//   };
//
// `m_stat` is the number tracked (GetStat, SetStat); ApplyHistory is
// SetHistory for a loader.
#pragma once

#include "alarms/tracker_ring.h"
#include "frame/cloneable.h"
#include "frame/module.h"
#include "frame/persist_interfaces.h"
#include "frame/stats_interfaces.h"
#include "frame/tracker_interfaces.h"
#include "frame/xml_persist.h"
#include "platform/object.h"

namespace zemo {

template <class D, class IKey>
class TStatsTracker : public Object<D, IZemoStatsTracker, IKey, ICloneable, IPersistXml> {
 public:
  // IZemoStatsTracker
  HRESULT GetStatCount(LONG* count) override {
    return this->Locked([&] {
      CheckOut(count);
      *count = Self()->StatCount();
    });
  }
  HRESULT GetStatID(LONG index, VARIANT* id) override {
    return this->Locked([&] {
      CheckOut(id);
      VariantInit(id);
      CVariant value = Self()->StatId(index);
      std::swap(*id, static_cast<VARIANT&>(value));
    });
  }
  HRESULT GetStatName(VARIANT id, BSTR* name) override {
    return this->Locked([&]() -> HRESULT {
      CheckOut(name);
      *name = nullptr;
      CVariant type;
      HRESULT hr = VariantChangeType(&type, &id, 0, VT_I4);
      if (FAILED(hr)) return hr;
      *name = AllocBstr(Self()->StatName(type.lVal));
      return S_OK;
    });
  }
  HRESULT GetStat(VARIANT* id) override {
    return this->Locked([&] {
      CheckOut(id);
      VariantInit(id);
      id->vt = VT_I4;
      id->lVal = m_stat;
    });
  }
  HRESULT SetStat(VARIANT id) override {
    return this->Locked([&] {
      CVariant type;
      if (FAILED(VariantChangeType(&type, &id, 0, VT_I4))) AtlThrow(E_INVALIDARG);
      m_stat = type.lVal;
    });
  }
  HRESULT Update(ZemoTime time) override {
    return this->Locked([&]() -> HRESULT {
      typename D::Source source{};
      HRESULT hr = CheckHr(Self()->Read(source));
      if (hr == S_FALSE) return S_OK;
      const uint64_t second = m_ring.Fit(time);
      m_ring.Store(second, Self()->SampleOf(source));
      return hr;
    });
  }
  HRESULT Reset() override {
    return this->Locked([&] { m_ring.Reset(); });
  }
  HRESULT GetValue(ZemoTime time, double* value) override {
    return this->Locked([&] {
      CheckOut(value);
      *value = m_ring.At(time);
    });
  }
  HRESULT GetValueDelta(ZemoTime start, ZemoTime end, double* value) override {
    return this->Locked([&] {
      CheckOut(value);
      const double last = m_ring.At(end);
      *value = last - m_ring.At(start);
    });
  }
  HRESULT GetValueRate(ZemoTime time, double* value) override {
    return this->Locked([&] {
      CheckOut(value);
      const double now = m_ring.At(time);
      *value = now - m_ring.At(time - CTrackerRing::kSecond);
    });
  }
  HRESULT GetMaxHistory(LONG* seconds) override {
    return this->Unlocked([&] {
      CheckOut(seconds);
      *seconds = CTrackerRing::kMaxHistory;
    });
  }
  HRESULT GetHistory(LONG* seconds) override {
    return this->Locked([&] {
      CheckOut(seconds);
      *seconds = m_ring.History();
    });
  }
  HRESULT SetHistory(LONG seconds) override {
    return this->Locked([&] { m_ring.SetHistory(seconds); });
  }
  HRESULT GetTimeRange(ZemoTime* first, ZemoTime* last) override {
    return this->Locked([&] {
      CheckOut(first);
      CheckOut(last);
      m_ring.TimeRange(first, last);
    });
  }
  HRESULT GetLastTime(ZemoTime* time) override {
    return this->Locked([&] {
      CheckOut(time);
      *time = m_ring.LastTime();
    });
  }
  // The first context binds for good; the statistic is looked up in it,
  // and a failure of that leaves the context stored all the same.
  HRESULT SetContext(IZemoStatsContext* context) override {
    return this->Locked([&]() -> HRESULT {
      if (m_context) return S_OK;
      if (!context) return E_POINTER;
      m_context = context;
      return Self()->Bind(context);
    });
  }
  HRESULT GetContext(IZemoStatsContext** context) override {
    return this->Locked([&] {
      CheckOut(context);
      if (m_context) m_context->AddRef();
      *context = m_context;
    });
  }

  // ICloneable: a new tracker of the class with the same key, stat and
  // history, bound to the same context; its ring starts empty.
  HRESULT Clone(IUnknown** out) override {
    return this->Locked([&] {
      CheckOut(out);
      ComPtr<IZemoStatsTracker> clone;
      CheckHr(CreateModuleInstance(D::kClsid, IZemoStatsTracker::iid, clone.OutVoid()));
      Self()->CopyTo(clone.Get());
      CheckHr(clone->SetHistory(m_ring.History()));
      // Bound as far as this tracker is: a context without the statistic
      // stays stored in the clone too.
      if (m_context) clone->SetContext(m_context);
      *out = clone.Detach();
    });
  }

  // IPersistXml. Neither form holds samples, positions or the context.
  HRESULT GetClassID(CLSID* out) override {
    if (!out) return E_POINTER;
    *out = D::kClsid;
    return S_OK;
  }
  HRESULT Load(IUnknown* document, IUnknown* node) override {
    return this->Locked([&] {
      XmlDocumentOf(document);
      ComPtr<IXMLDOMElement> element = SelectXmlElement(XmlNodeOf(node).Get(), D::kXmlElement);
      if (!element) AtlThrow(E_FAIL);
      Self()->LoadXml(element.Get());
    });
  }
  HRESULT Save(IUnknown* document, IUnknown* node, BOOL) override {
    return this->Locked([&] {
      ComPtr<IXMLDOMDocument> doc = XmlDocumentOf(document);
      ComPtr<IXMLDOMNode> parent = XmlNodeOf(node);
      ComPtr<IXMLDOMElement> element = CreateXmlElement(doc.Get(), D::kXmlElement);
      Self()->SaveXml(doc.Get(), element.Get());
      AppendXmlChild(parent.Get(), element.Get());
    });
  }

 protected:
  void ApplyHistory(LONG seconds) { m_ring.SetHistory(seconds); }
  LONG History() const noexcept { return m_ring.History(); }

  IZemoStatsContext* m_context = nullptr;  // no reference held
  LONG m_stat = 0;

 private:
  D* Self() noexcept { return static_cast<D*>(this); }
  const D* Self() const noexcept { return static_cast<const D*>(this); }

  CTrackerRing m_ring;
};

}  // namespace zemo
