#include "engine/select_params.h"

#include <gtest/gtest.h>

#include "engine/simple_prop_bag.h"

namespace {

using zemo::CBstr;
using zemo::ComPtr;
using zemo::CVariant;

TEST(EngineSelectParams, StepsComeOffInOrderThenSFalse) {
  auto params = zemo::MakeObject<zemo::SelectParams, ISelectParams>();
  ComPtr<IPropertyBag> bag = zemo::MakeObject<zemo::SimplePropBag, IPropertyBag>();
  IPropertyBag* const bagAddress = bag.Get();
  ASSERT_EQ(S_OK, params->AddItem(CBstr(u"statscontext").Get(), nullptr));
  ASSERT_EQ(S_OK, params->AddItem(CBstr(u"stat").Get(), bag.Get()));
  ASSERT_EQ(S_OK, params->AddItem(nullptr, nullptr));
  bag = nullptr;  // the path keeps its own reference

  LONG count = -1;
  ASSERT_EQ(S_OK, params->GetCount(&count));
  EXPECT_EQ(3, count);

  for (int pass = 0; pass < 2; ++pass) {
    CBstr name;
    ComPtr<IPropertyBag> stepBag;
    ASSERT_EQ(S_OK, params->NextItem(name.Out(), stepBag.ReleaseAndGetAddressOf()));
    EXPECT_EQ(u"statscontext", name.View());
    EXPECT_FALSE(stepBag);
    ASSERT_EQ(S_OK, params->NextItem(name.Out(), stepBag.ReleaseAndGetAddressOf()));
    EXPECT_EQ(u"stat", name.View());
    EXPECT_EQ(bagAddress, stepBag.Get());
    CVariant value = CVariant::I4(8);
    EXPECT_EQ(S_OK, stepBag->Write(u"name", &value));  // still alive
    ASSERT_EQ(S_OK, params->GetCount(&count));
    EXPECT_EQ(1, count);
    // A null name is the empty text, never a null BSTR.
    ASSERT_EQ(S_OK, params->NextItem(name.Out(), stepBag.ReleaseAndGetAddressOf()));
    ASSERT_NE(nullptr, name.Get());
    EXPECT_EQ(0u, name.Length());

    for (int end = 0; end < 2; ++end) {
      BSTR rawName = reinterpret_cast<BSTR>(0x1);
      IPropertyBag* rawBag = reinterpret_cast<IPropertyBag*>(0x1);
      EXPECT_EQ(S_FALSE, params->NextItem(&rawName, &rawBag));
      EXPECT_EQ(nullptr, rawName);
      EXPECT_EQ(nullptr, rawBag);
    }
    ASSERT_EQ(S_OK, params->GetCount(&count));
    EXPECT_EQ(0, count);
    ASSERT_EQ(S_OK, params->Rewind());
  }
}

TEST(EngineSelectParams, NullNameOutTakesNoStep) {
  auto params = zemo::MakeObject<zemo::SelectParams, ISelectParams>();
  ASSERT_EQ(S_OK, params->AddItem(CBstr(u"alarm").Get(), nullptr));
  EXPECT_EQ(E_POINTER, params->NextItem(nullptr, nullptr));
  CBstr name;
  EXPECT_EQ(S_OK, params->NextItem(name.Out(), nullptr));  // the bag is optional
  EXPECT_EQ(u"alarm", name.View());
}

}  // namespace
