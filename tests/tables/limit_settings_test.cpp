#include "tables/limit_settings.h"

#include <gtest/gtest.h>

#include "tests/tables/node_fixture.h"

namespace {

using zemo::CBstr;
using zemo::ComPtr;
using zemo::ZemoStatsLimitSettings;

struct Values {
  LONG enabled, reset, notify, severity;
  ULONG limit;
};

Values Read(IZemoStatsLimitSettings* s) {
  Values v{};
  EXPECT_EQ(S_OK, s->GetEnabled(&v.enabled));
  EXPECT_EQ(S_OK, s->GetLimit(&v.limit));
  EXPECT_EQ(S_OK, s->GetReset(&v.reset));
  EXPECT_EQ(S_OK, s->GetNotify(&v.notify, &v.severity));
  return v;
}

using zemo::testing::ParseXml;

HRESULT LoadFrom(ZemoStatsLimitSettings* s, IXMLDOMDocument* document) {
  ComPtr<IXMLDOMElement> root;
  EXPECT_EQ(S_OK, document->get_documentElement(root.ReleaseAndGetAddressOf()));
  return s->Load(document, root.Get());
}

TEST(LimitSettings, StartWithTheDefaultsAndHoldWhatIsSet) {
  auto s = ZemoStatsLimitSettings::Create();
  Values v = Read(s.Get());
  EXPECT_EQ(1, v.enabled);
  EXPECT_EQ(100000u, v.limit);
  EXPECT_EQ(0, v.reset);
  EXPECT_EQ(1, v.notify);
  EXPECT_EQ(3, v.severity);

  s->SetEnabled(0);
  s->SetLimit(0xFFFFFFFF);
  s->SetReset(7);  // any value goes in as it is
  s->SetNotify(0, -2);
  v = Read(s.Get());
  EXPECT_EQ(0, v.enabled);
  EXPECT_EQ(0xFFFFFFFFu, v.limit);
  EXPECT_EQ(7, v.reset);
  EXPECT_EQ(0, v.notify);
  EXPECT_EQ(-2, v.severity);

  LONG one = 0;
  EXPECT_EQ(E_POINTER, s->GetEnabled(nullptr));
  EXPECT_EQ(E_POINTER, s->GetLimit(nullptr));
  EXPECT_EQ(E_POINTER, s->GetReset(nullptr));
  EXPECT_EQ(E_POINTER, s->GetNotify(&one, nullptr));
  EXPECT_EQ(E_POINTER, s->GetNotify(nullptr, &one));
}

TEST(LimitSettings, SaveWritesTheFiveAttributesInOrderAndLoadReadsThemBack) {
  auto s = ZemoStatsLimitSettings::Create();
  s->SetLimit(250);
  s->SetReset(1);
  s->SetNotify(1, 9);
  ComPtr<IXMLDOMDocument> document = ParseXml(u"<root/>");
  ComPtr<IXMLDOMElement> root;
  ASSERT_EQ(S_OK, document->get_documentElement(root.ReleaseAndGetAddressOf()));
  ASSERT_EQ(S_OK, s->Save(document.Get(), root.Get(), TRUE));
  CBstr markup;
  ASSERT_EQ(S_OK, root->get_xml(markup.Out()));
  EXPECT_EQ("<root><ZemoStatsLimitSettings Enabled=\"1\" Limit=\"250\" Reset=\"1\" Notify=\"1\" Severity=\"9\"/></root>",
            markup.Utf8());

  auto back = ZemoStatsLimitSettings::Create();
  ASSERT_EQ(S_OK, LoadFrom(back.Get(), document.Get()));
  Values v = Read(back.Get());
  EXPECT_EQ(250u, v.limit);
  EXPECT_EQ(1, v.reset);
  EXPECT_EQ(9, v.severity);
}

TEST(LimitSettings, LoadLeavesAbsentAndBadAttributesAlone) {
  auto s = ZemoStatsLimitSettings::Create();
  s->SetLimit(42);
  ASSERT_EQ(S_OK, LoadFrom(s.Get(), ParseXml(u"<root><ZemoStatsLimitSettings Enabled=\"zero\" Reset=\"1\" "
                                          u"Notify=\"\" Severity=\"99999999999999999999\"/></root>")
                                        .Get()));
  Values v = Read(s.Get());
  EXPECT_EQ(1, v.enabled);
  EXPECT_EQ(42u, v.limit);
  EXPECT_EQ(1, v.reset);
  EXPECT_EQ(1, v.notify);
  EXPECT_EQ(3, v.severity);

  // No settings element at all is a failure.
  EXPECT_EQ(E_FAIL, LoadFrom(s.Get(), ParseXml(u"<root><other Limit=\"1\"/></root>").Get()));
  EXPECT_EQ(42u, Read(s.Get()).limit);
}

}  // namespace
