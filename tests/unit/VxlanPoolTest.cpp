#include <gtest/gtest.h>

#include <vector>

#include "unit/CoppHelperFixture.h"

namespace {

using CoppTest::AttributeSpy;
using CoppTest::CoppPlatform;

// The pool only records indices of the default-and-VXLAN entry manager; no chip is needed.
class VxlanPool : public ::testing::Test {
  protected:
   static constexpr U32 base = 4000;

   void SetUp() override {
      helper = platform.helper();
      entryMgr = new Nimbal::NimbalBoundedTcamEntryManager(41, base);
      helper->efpCoppDefAndVxlanEntryMgrIs(entryMgr);
   }

   std::vector<U32> taken() const {
      std::vector<U32> out;
      for (auto const& [entry, inUse] : helper->coppVxlanDynEntryInUseCol()) {
         EXPECT_TRUE(inUse) << entry;
         out.push_back(entry);
      }
      return out;
   }

   CoppPlatform platform;
   Kiv::Ptr<Nimbal::QosAclHelperV1> helper;
   Kiv::Ptr<Nimbal::NimbalBoundedTcamEntryManager> entryMgr;
};

TEST_F(VxlanPool, EmptyPoolGivesTheFirstDynamicIndex) {
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 256);
   EXPECT_TRUE(helper->coppVxlanDynEntryInUse(base + 256));
   EXPECT_EQ(taken(), std::vector<U32>({base + 256}));
}

TEST_F(VxlanPool, LowestFreeIndexComesFirst) {
   for (U32 entry : {base + 256, base + 257, base + 258, base + 259, base + 261}) {
      helper->coppVxlanDynEntryInUseIs(entry, true);
   }
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 260);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 262);
   EXPECT_EQ(taken(), std::vector<U32>({base + 256, base + 257, base + 258, base + 259, base + 260,
                                        base + 261, base + 262}));
}

TEST_F(VxlanPool, FullPoolGivesInvalidAndChangesNothing) {
   for (U32 i = 0; i < 512; ++i) {
      EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 256 + i);
   }
   AttributeSpy spy(helper.ptr());
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), 0xFFFFFFFFu);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), Nimbal::QosAclHelperV1::coppVxlanDynEntryInvalid);
   EXPECT_EQ(helper->coppVxlanDynEntryInUse(), 512u);
   EXPECT_FALSE(helper->coppVxlanDynEntryInUseHas(base + 768));
   EXPECT_TRUE(spy.events().empty());
}

TEST_F(VxlanPool, FreedIndexIsTakenAgainFirst) {
   for (U32 i = 0; i < 100; ++i) {
      helper->allocateCoppVxlanDynEntry();
   }
   helper->freeCoppVxlanEntry(base + 300);
   EXPECT_FALSE(helper->coppVxlanDynEntryInUseHas(base + 300));
   EXPECT_EQ(helper->coppVxlanDynEntryInUse(), 99u);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 300);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 356);
}

TEST_F(VxlanPool, FreeingTheWholePoolStartsOverAtTheFirstIndex) {
   for (U32 i = 0; i < 512; ++i) {
      helper->allocateCoppVxlanDynEntry();
   }
   for (U32 i = 0; i < 512; ++i) {
      helper->freeCoppVxlanEntry(base + 256 + i);
   }
   EXPECT_EQ(helper->coppVxlanDynEntryInUse(), 0u);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 256);
}

TEST_F(VxlanPool, TheRangeMovesWithTheManagersBaseIndex) {
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 256);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), base + 257);
   entryMgr->baseIndexIs(9000);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), 9000u + 256);
   // Indices already handed out keep their absolute values.
   EXPECT_EQ(taken(), std::vector<U32>({base + 256, base + 257, 9000 + 256}));
}

TEST_F(VxlanPool, TheRangeEndIsReadFromTheBaseToo) {
   entryMgr->baseIndexIs(0);
   for (U32 i = 0; i < 511; ++i) {
      helper->allocateCoppVxlanDynEntry();
   }
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), 767u);
   EXPECT_EQ(helper->allocateCoppVxlanDynEntry(), 0xFFFFFFFFu);
}

TEST_F(VxlanPool, AllocationAndReleaseNotifyTheCollectionsObservers) {
   AttributeSpy spy(helper.ptr());
   U32 const entry = helper->allocateCoppVxlanDynEntry();
   helper->freeCoppVxlanEntry(entry);
   ASSERT_EQ(spy.attrs(),
             std::vector<std::string>({"coppVxlanDynEntryInUse", "coppVxlanDynEntryInUse"}));
   EXPECT_EQ(std::any_cast<U32>(spy.events()[0].key), entry);
   EXPECT_EQ(std::any_cast<U32>(spy.events()[1].key), entry);
}

TEST_F(VxlanPool, SettingAnEqualFlagNotifiesNobody) {
   helper->coppVxlanDynEntryInUseIs(base + 256, true);
   AttributeSpy spy(helper.ptr());
   helper->coppVxlanDynEntryInUseIs(base + 256, true);
   EXPECT_TRUE(spy.events().empty());
   helper->coppVxlanDynEntryInUseIs(base + 256, false);
   EXPECT_EQ(spy.attrs(), std::vector<std::string>({"coppVxlanDynEntryInUse"}));
   EXPECT_FALSE(helper->coppVxlanDynEntryInUse(base + 256));
}

TEST_F(VxlanPool, FreeingAnIndexTwiceEndsTheProcess) {
   U32 const entry = helper->allocateCoppVxlanDynEntry();
   helper->freeCoppVxlanEntry(entry);
   EXPECT_DEATH(helper->freeCoppVxlanEntry(entry),
                "Assertion `coppVxlanDynEntryInUse\\( entry \\)'");
}

TEST_F(VxlanPool, FreeingAnIndexNeverTakenEndsTheProcess) {
   EXPECT_DEATH(helper->freeCoppVxlanEntry(base + 400),
                "Assertion `coppVxlanDynEntryInUse\\( entry \\)'");
}

TEST_F(VxlanPool, FreeingAnIndexMarkedFreeEndsTheProcess) {
   helper->coppVxlanDynEntryInUseIs(base + 256, false);
   EXPECT_DEATH(helper->freeCoppVxlanEntry(base + 256),
                "Assertion `coppVxlanDynEntryInUse\\( entry \\)'");
}

TEST_F(VxlanPool, AnIndexMarkedFreeInThePoolEndsTheAllocation) {
   helper->coppVxlanDynEntryInUseIs(base + 256, true);
   helper->coppVxlanDynEntryInUseIs(base + 257, false);
   EXPECT_DEATH(helper->allocateCoppVxlanDynEntry(), "Assertion `\\*iter'");
}

TEST_F(VxlanPool, TheConstantsDivideTheManagersIndices) {
   EXPECT_EQ(Nimbal::QosAclHelperV1::coppVxlanDynEntryOffset, 256u);
   EXPECT_EQ(Nimbal::QosAclHelperV1::coppVxlanDynEntryMax, 768u);
   EXPECT_EQ(Nimbal::QosAclHelperV1::coppVxlanDefaultOffset, 768u);
}

}  // namespace
