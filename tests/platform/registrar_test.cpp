// The registrar a host uses for classes of its own.
#include <gtest/gtest.h>

#include "platform/class_store.h"

namespace {

using zemo::ClassStore;

const char16_t kScript[] = uR"(HKCR
{
	Host.Thing = s 'Thing Class'
	{
		CLSID = s '{5E1F7A20-0B6C-4D3E-9A51-7C2B8D4E6F99}'
	}
})";

TEST(Registrar, GivesAHostClassItsProgramIdentifierAndTakesItBack) {
  ASSERT_EQ(S_OK, RegistrarRunScript(kScript, TRUE));
  CLSID clsid{};
  ASSERT_EQ(S_OK, CLSIDFromProgID(u"Host.Thing", &clsid));
  EXPECT_EQ(MakeGuid("5E1F7A20-0B6C-4D3E-9A51-7C2B8D4E6F99"), clsid);

  ASSERT_EQ(S_OK, RegistrarRunScript(kScript, FALSE));
  EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromProgID(u"Host.Thing", &clsid));
  EXPECT_FALSE(ClassStore::KeyExists(u"Host.Thing"));
}

TEST(Registrar, RefusesWhatIsNoScript) {
  EXPECT_EQ(E_POINTER, RegistrarRunScript(nullptr, TRUE));
  EXPECT_EQ(E_FAIL, RegistrarRunScript(u"HKCR { Host.Broken = s ", TRUE));
  EXPECT_FALSE(ClassStore::KeyExists(u"Host.Broken"));
}

}  // namespace
