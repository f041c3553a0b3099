// Documents from markup and back, for XML round trips and documents made by
// hand.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "frame/xml_persist.h"
#include "platform/strings.h"

namespace zemo::testing_support {

// A document parsed from markup; markup that does not parse fails the test.
inline ComPtr<IXMLDOMDocument> ParseXml(std::u16string_view markup) {
  auto document = CreateXmlDocument();
  VARIANT_BOOL ok = VARIANT_FALSE;
  EXPECT_EQ(S_OK, document->loadXML(CBstr(markup).Get(), &ok)) << ToUtf8(markup);
  return document;
}
inline ComPtr<IXMLDOMDocument> ParseXml(std::string_view utf8) { return ParseXml(FromUtf8(utf8)); }
inline ComPtr<IXMLDOMDocument> ParseXml(const char* utf8) { return ParseXml(std::string_view(utf8)); }
inline ComPtr<IXMLDOMDocument> ParseXml(const char16_t* markup) { return ParseXml(std::u16string_view(markup)); }

// A document's markup.
inline std::u16string XmlMarkup(IXMLDOMDocument* document) {
  CBstr text;
  EXPECT_EQ(S_OK, document->get_xml(text.Out()));
  return std::u16string(text.View());
}

}  // namespace zemo::testing_support
