// Registration of the host's engine classes (ZemoUtil.SelectParams and the
// like) in the class store, so that code creating them by program identifier
// finds them in this process.
#pragma once

#include <span>

#include "frame/class_table.h"

inline constexpr CLSID CLSID_ZemoSelectParams = MakeGuid("CBB27340-25EB-416C-AD66-208811E37403");
inline constexpr CLSID CLSID_ZemoSimplePropBag = MakeGuid("5C7DEBBB-5DE3-40E3-9768-D06B2B96A93A");
inline constexpr CLSID CLSID_ZemoDataTable = MakeGuid("342FD52A-65C2-4E50-8B77-C39C829DE6AE");
inline constexpr CLSID CLSID_ZemoProtoSpecs = MakeGuid("A3CF6915-E06B-458C-A2E7-632623C13702");
inline constexpr CLSID CLSID_ZemoMediaUtils = MakeGuid("AAEAAF06-5B68-477B-AD38-3E210BFD1F5B");
inline constexpr CLSID CLSID_ZemoAdapterInfo = MakeGuid("EBA7C5CC-63C2-4715-AC56-EC3990ADA53A");
inline constexpr CLSID CLSID_ZemoNotifySink = MakeGuid("C266CC2E-C1D2-4F22-9F1C-30980A2A54DE");
inline constexpr CLSID CLSID_ZemoSite = MakeGuid("20A3499D-E8C5-4D7C-B475-F8EC2DECF4A5");
inline constexpr CLSID CLSID_ZemoAddressBook = MakeGuid("F43D3D85-AB49-41D4-8FBF-1D1F053E31D7");

namespace zemo {

struct EngineClass {
  const char16_t* progId;  // u"ZemoUtil.SelectParams"
  const char16_t* name;    // u"SelectParams": the keys' text is the name and " Class"
  CLSID clsid;
  CreatorFn create;
};

// Every engine class, in registration order.
std::span<const EngineClass> EngineClasses();

// Writes the program-identifier and class keys of every engine class and
// makes each creatable in process. Calling it again repairs what is missing.
HRESULT RegisterEngineClasses();
// Revokes the class objects and removes the keys.
HRESULT UnregisterEngineClasses();

}  // namespace zemo
