// The test program plays the host: its engine classes (ZemoCore.ProtoSpecs
// and the like) are registered before every test, as a host registers them
// before it creates a context. Tests that unregister them therefore don't
// take them away from the tests that follow.
#include <gtest/gtest.h>

#include "engine/engine.h"

namespace {

class HostEngine final : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override { ASSERT_EQ(S_OK, zemo::RegisterEngineClasses()); }
};

const bool kInstalled = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new HostEngine);
  return true;
}();

}  // namespace
