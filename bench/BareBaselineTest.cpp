// The bare baseline of the benchmarks is only a baseline if it makes the very SDK calls the
// library makes: same calls, same arguments, same order.

#include <gtest/gtest.h>

#include "Kiv/Activity.h"
#include "bench/BenchSwitch.h"

namespace {

using namespace NimbalBench;

std::vector<std::string> texts(Shim::Sdk const& sdk) {
   return sdk.journalTexts();
}

TEST(BareBaseline, BootMakesTheSdkCallsOfTheLibraryInTheSameOrder) {
   Kiv::ActivityScope activity;
   std::vector<std::string> library, bare;
   {
      Agent a(scaleSwitch(2, 3, 5));
      a.sw->sdk().journalLimitIs(Shim::Sdk::defaultJournalLimit);
      a.boot();
      ASSERT_EQ(a.reactor->programmed().size(), 2u * 3u * 5u);
      library = texts(a.sw->sdk());
   }
   {
      Agent a(scaleSwitch(2, 3, 5));
      a.sw->sdk().journalLimitIs(Shim::Sdk::defaultJournalLimit);
      bareBoot(*a.sw, startUpKeys(*a.sw));
      bare = texts(a.sw->sdk());
   }
   ASSERT_FALSE(library.empty());
   EXPECT_EQ(bare, library);
}

TEST(BareBaseline, TeardownMakesTheSdkCallsOfTheLibraryInTheSameOrder) {
   Kiv::ActivityScope activity;
   std::vector<std::string> library, bare;
   {
      Agent a(scaleSwitch(2, 3, 5));
      std::vector<KeyRate> const keys = startUpKeys(*a.sw);
      a.boot();
      a.sw->sdk().journalLimitIs(Shim::Sdk::defaultJournalLimit);
      for (KeyRate const& k : keys) {
         a.sw->kernelCoppConfig()->coppInfoDel(k.key);
      }
      ASSERT_TRUE(a.reactor->programmed().empty());
      library = texts(a.sw->sdk());
   }
   {
      Agent a(scaleSwitch(2, 3, 5));
      std::vector<BareEntry> const made = bareBoot(*a.sw, startUpKeys(*a.sw));
      a.sw->sdk().journalLimitIs(Shim::Sdk::defaultJournalLimit);
      bareTeardown(*a.sw, made);
      bare = texts(a.sw->sdk());
   }
   ASSERT_FALSE(library.empty());
   EXPECT_EQ(bare, library);
}

// The description is an argument of the TCAM manager's call, which keeps it with the entry.
TEST(BareBaseline, BootGivesEveryEntryTheDescriptionTheLibraryGivesIt) {
   Kiv::ActivityScope activity;
   std::vector<std::string> library, bare;
   {
      Agent a(scaleSwitch(2, 3, 5));
      a.boot();
      for (KeyRate const& k : startUpKeys(*a.sw)) {
         auto const record = a.sw->helper()->kernelDynamicCoppData(k.key);
         ASSERT_TRUE(record);
         U32 const unit = a.sw->unitOfModule(static_cast<U16>(k.key.modId()));
         library.push_back(a.sw->efpCoppEntryMgr()->entryDescription(unit, record->entry()));
      }
   }
   {
      Agent a(scaleSwitch(2, 3, 5));
      for (BareEntry const& b : bareBoot(*a.sw, startUpKeys(*a.sw))) {
         bare.push_back(a.sw->efpCoppEntryMgr()->entryDescription(b.unit, b.entry));
      }
   }
   ASSERT_EQ(library.size(), 2u * 3u * 5u);
   EXPECT_EQ(library.front(), "Dynamic Kernel Copp for Ethernet1, copp-bench-1");
   EXPECT_EQ(bare, library);
}

TEST(BareBaseline, FullScaleSwitchHasAKeyForEveryPortAndQueue) {
   Kiv::ActivityScope activity;
   auto const sw = NimbalHost::buildSwitch(scaleSwitch(modulesAtFullScale));
   EXPECT_EQ(startUpKeys(*sw).size(), 4u * 256u * 47u);
}

}  // namespace
