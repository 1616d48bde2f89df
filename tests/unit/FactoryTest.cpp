#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdlib.h>
#include "Kiv/Allocator.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <type_traits>

#include "unit/CoppHelperFixture.h"

namespace {

using CoppTest::CoppPlatform;
using CoppTest::TraceCapture;

// A toggle directory of its own for one test; NIMBAL_TOGGLE_DIR points at it meanwhile.
class ToggleDir {
  public:
   ToggleDir() {
      char pattern[] = "/tmp/nimbal-toggles-XXXXXX";
      path_ = ::mkdtemp(pattern);
      ::setenv("NIMBAL_TOGGLE_DIR", path_.c_str(), 1);
   }
   ~ToggleDir() { remove(); }
   void remove() {
      ::unsetenv("NIMBAL_TOGGLE_DIR");
      std::filesystem::remove_all(path_);
   }
   void toggleIs(bool on) const {
      std::ofstream(path_ + "/NimbalTcam.json")
          << "{\"UseTcamAgentForPolicyQos\": " << (on ? "true" : "false") << "}\n";
   }

  private:
   std::string path_;
};

// The helper class the factory builds in a fresh process, before and after the toggle file
// changed; the child re-runs the whole test, so the toggle is read there for the first time.
void expectFactoryClassInFreshProcess(bool toggleFileOn, bool toggleFilePresent,
                                      std::string const& expected) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   ToggleDir dir;
   if (toggleFilePresent) {
      dir.toggleIs(toggleFileOn);
   }
   EXPECT_EXIT(
       {
          CoppPlatform platform;
          auto first = platform.viaFactory();
          std::string const firstClass = first->fwkType()->fullName();
          dir.toggleIs(!toggleFileOn);
          auto second = platform.viaFactory();
          std::string const secondClass = second->fwkType()->fullName();
          std::fprintf(stderr, "built %s then %s\n", firstClass.c_str(), secondClass.c_str());
          dir.remove();
          std::exit(firstClass == expected && secondClass == expected ? 0 : 1);
       },
       ::testing::ExitedWithCode(0), "built " + expected + " then " + expected);
}

TEST(Factory, SymbolConstantNamesTheExportedFactory) {
   void* library = ::dlopen(NIMBAL_QOS_LIBRARY_FILE, RTLD_NOW);
   ASSERT_NE(library, nullptr) << ::dlerror();
   void* symbol = ::dlsym(library, Nimbal::getQosAclHelperSymbol);
   ASSERT_NE(symbol, nullptr) << ::dlerror();
   EXPECT_EQ(symbol, reinterpret_cast<void*>(&Nimbal::getQosAclHelper));
   static_assert(
       std::is_same_v<Nimbal::GetQosAclHelperFunction, decltype(&Nimbal::getQosAclHelper)>);
   ::dlclose(library);
}

TEST(Factory, ToggleOnBuildsTcamVariantAndIsReadOnlyOnce) {
   expectFactoryClassInFreshProcess(true, true, "Nimbal::QosTcamAclHelperV1");
}

TEST(Factory, ToggleOffBuildsV1AndIsReadOnlyOnce) {
   expectFactoryClassInFreshProcess(false, true, "Nimbal::QosAclHelperV1");
}

TEST(Factory, AbsentToggleFileBuildsV1AndIsReadOnlyOnce) {
   expectFactoryClassInFreshProcess(false, false, "Nimbal::QosAclHelperV1");
}

TEST(Factory, HandsEveryArgumentToItsPlace) {
   CoppPlatform platform;
   auto built = platform.viaFactory();
   auto helper = Kiv::ptr_cast<Nimbal::QosAclHelperV1>(built);
   ASSERT_TRUE(helper);
   EXPECT_TRUE(helper->qosStatus() == platform.qosStatus);
   EXPECT_TRUE(helper->qosAclSliceHwStatus() == platform.qosAclSliceHwStatus);
   EXPECT_TRUE(helper->mainAclConfig() == platform.mainAclConfig);
   EXPECT_TRUE(helper->mmuSm() == platform.mmuSm);
   EXPECT_TRUE(helper->scsd() == platform.scsd);
   EXPECT_TRUE(helper->tcamGroupManager() == platform.tcamGroupManager);
   EXPECT_TRUE(helper->pktDrv() == platform.pktDrv);
   EXPECT_TRUE(helper->aclHwStatus() == platform.aclHwStatus);
   EXPECT_TRUE(helper->vlanTopoSliceStatus() == platform.vlanTopoSliceStatus);
   EXPECT_TRUE(helper->scMiscConfig() == platform.scMiscConfig);
   EXPECT_TRUE(helper->routingStatus() == platform.routingStatus);
   EXPECT_TRUE(helper->vxlanSliceConfig() == platform.vxlanSliceConfig);
   EXPECT_EQ(helper->unit(), 3u);
   EXPECT_TRUE(helper->qosAclHwStatus() == platform.qosAclHwStatus);
   EXPECT_TRUE(helper->kernelCoppConfig() == platform.kernelCoppConfig);
   EXPECT_EQ(platform.kernelCoppConfig->references(), 2);
}

TEST(Factory, NewHelperHasNotificationsOnAndEmptyState) {
   CoppPlatform platform;
   auto helper = Kiv::ptr_cast<Nimbal::QosAclHelperV1>(platform.viaFactory());
   ASSERT_TRUE(helper);
   EXPECT_TRUE(helper->hasNotificationActive());
   EXPECT_FALSE(helper->policyCoppIpEntryMgr());
   EXPECT_FALSE(helper->policyCoppIp6EntryMgr());
   EXPECT_FALSE(helper->efpCoppEntryMgr());
   EXPECT_FALSE(helper->efpCoppDefAndVxlanEntryMgr());
   EXPECT_FALSE(helper->qosIntfCoppSm());
   EXPECT_FALSE(helper->createCoppPolicerAlwaysFalse());
   EXPECT_EQ(helper->portDefaultCoppPolicerHwData(), 0u);
   EXPECT_EQ(helper->coppIntfPolicerData(), 0u);
   EXPECT_EQ(helper->kernelDynamicCoppData(), 0u);
   EXPECT_EQ(helper->kernelDynamicCoppVxlanData(), 0u);
   EXPECT_EQ(helper->portDefaultCoppPolicerVxlanHwData(), 0u);
   EXPECT_EQ(helper->coppVxlanDynEntryInUse(), 0u);
   EXPECT_EQ(helper->userCoppData(), 0u);
   EXPECT_EQ(helper->lastClearCoppSwCounter(), 0u);
   EXPECT_EQ(helper->lastClearCoppSwCfgCounter(), 0u);
   EXPECT_EQ(helper->coppIntfCounterData(), 0u);
}

TEST(Factory, HelperIsAllocatedThroughTheFrameworksAccounting) {
   CoppPlatform platform;
   U64 const before = Kiv::allocations<Nimbal::QosAclHelperV1>();
   auto helper = platform.viaFactory();
   EXPECT_EQ(Kiv::allocations<Nimbal::QosAclHelperV1>(), before + 1);
}

TEST(Factory, ConstructionTracesNothingAndCallsNothing) {
   CoppPlatform platform;
   TraceCapture traces({"NimbalQosSm", "ApiNimbal", "NimbalQosTcamAclSm"});
   auto helper = platform.helper();
   auto tcam = platform.tcamHelper();
   EXPECT_TRUE(traces.lines().empty());
   EXPECT_TRUE(helper->baseCalls().empty());
   EXPECT_TRUE(tcam->baseCalls().empty());
   EXPECT_FALSE(tcam->qosIntfCoppSm());
}

}  // namespace
