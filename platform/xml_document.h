// The document class of the platform's DOM, over pugixml.
//
// The class store serves it as CLSID_DOMDocument without registration, so
// code creates it with CoCreateInstance as it would on the platform.
#pragma once

#include "platform/xml_dom.h"

namespace zemo {

// The class's creator: a new, empty document. Aggregation is refused.
HRESULT CreateXmlDocumentObject(IUnknown* outer, REFIID iid, void** out);

}  // namespace zemo
