#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <tuple>
#include <vector>

#include "Nimbal/NimbalCommonSmData.h"
#include "Nimbal/Toggle.h"
#include "NimbalTypes/NimbalPort.h"
#include "Orvik/IntfId.h"
#include "Oskel/ModIdPortQueueKey.h"

namespace {

TEST(NimbalPort, DefaultIsTheNoPortValue) {
   NimbalTypes::NimbalPort p;
   EXPECT_EQ(p.modId(), 0xDEAD);
   EXPECT_EQ(p.unit(), 0xFFFF);
   EXPECT_EQ(p.logicalPort(), 1023);
   EXPECT_EQ(p.flags(), 0u);
   EXPECT_TRUE(p == NimbalTypes::NimbalPort::noPort());
   EXPECT_FALSE(NimbalTypes::NimbalPort(0, 0, 5).operator==(p));
}

TEST(NimbalPort, OrderedByModuleUnitThenPort) {
   using NimbalTypes::NimbalPort;
   EXPECT_TRUE(NimbalPort(0, 0, 5) < NimbalPort(0, 0, 6));
   EXPECT_TRUE(NimbalPort(0, 1, 1) < NimbalPort(1, 0, 0));
   EXPECT_FALSE(NimbalPort(0, 0, 5) < NimbalPort(0, 0, 5));
}

TEST(NimbalPort, TheFourthWordBreaksTiesOnlyAndEveryPairOrdersAsItsFields) {
   using NimbalTypes::NimbalPort;
   EXPECT_TRUE(NimbalPort(0, 0, 5, 1) < NimbalPort(0, 0, 5, 2));
   EXPECT_TRUE(NimbalPort(0, 0, 5, 9) < NimbalPort(0, 0, 6, 0));
   EXPECT_TRUE(NimbalPort(0, 0xFFFF, 1023, 7) < NimbalPort(1, 0, 0, 0));
   // Every pair over small and extreme values of each field, against the fields in turn.
   std::vector<NimbalPort> ports;
   for (U16 modId : {U16(0), U16(1), U16(0xDEAD), U16(0xFFFF)}) {
      for (U16 unit : {U16(0), U16(3), U16(0xFFFF)}) {
         for (U16 port : {U16(0), U16(1), U16(255), U16(1023)}) {
            for (U32 flags : {0u, 1u, 0xFFFFFFFFu}) {
               ports.emplace_back(modId, unit, port, flags);
            }
         }
      }
   }
   auto fields = [](NimbalPort const& p) {
      return std::make_tuple(p.modId(), p.unit(), p.logicalPort(), p.flags());
   };
   for (NimbalPort const& a : ports) {
      for (NimbalPort const& b : ports) {
         ASSERT_EQ(a < b, fields(a) < fields(b)) << a << " " << b;
      }
   }
}

TEST(ModId, SixtyFourIsNullAndAcceptedSixtyFiveIsNot) {
   EXPECT_EQ(ModId(64).value(), ModId::null);
   EXPECT_THROW(ModId(65), Kiv::RangeException);
   try {
      ModId m(65);
   } catch (Kiv::RangeException const& e) {
      EXPECT_STREQ(e.what(), "ModId::value < ModId::min or > ModId::null not allowed");
   }
}

TEST(IntfId, EmptyValueAndNames) {
   EXPECT_TRUE(Orvik::IntfId().intfId() == Orvik::IntfId::emptyIntfId());
   EXPECT_EQ(Orvik::IntfId("Ethernet1").stringValue(), "Ethernet1");
   EXPECT_FALSE(Orvik::IntfId("Ethernet1") == Orvik::IntfId::emptyIntfId());
}

TEST(ModIdPortQueueKey, HashableOrderedComparable) {
   Oskel::ModIdPortQueueKey a(1, 5, 9), b(1, 5, 9), c(1, 6, 0);
   EXPECT_EQ(a, b);
   EXPECT_TRUE(a < c);
   EXPECT_EQ(std::hash<Oskel::ModIdPortQueueKey>()(a), std::hash<Oskel::ModIdPortQueueKey>()(b));
}

TEST(SharedState, VxlanEnabledNotifiesOnChangeOnly) {
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd(new Nimbal::NimbalCommonSmData());
   struct Watch : Kiv::Notifiee<Nimbal::NimbalCommonSmData> {
      int told = 0;
      void onAttribute(Kiv::AttrId a) override { told += a == "vxlanEnabled"; }
   } w;
   w.notifierIs(scsd);
   scsd->vxlanEnabledIs(false);
   EXPECT_EQ(w.told, 0);
   scsd->vxlanEnabledIs(true);
   scsd->vxlanEnabledIs(true);
   EXPECT_EQ(w.told, 1);
}

TEST(SharedState, UnknownModuleGivesTheDefaultModuleInformation) {
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd(new Nimbal::NimbalCommonSmData());
   auto info = scsd->nimbalModId(7);
   EXPECT_EQ(info, Nimbal::NimbalModInfo());
   EXPECT_EQ(info.chipInfo().unit(), 128);
   EXPECT_EQ(scsd->nimbalModIdToUnit(7), 0);
}

struct ToggleDir {
   std::filesystem::path dir;
   ToggleDir() {
      dir = std::filesystem::temp_directory_path() /
            ("nimbal-toggle-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
             "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
      std::filesystem::create_directories(dir);
      setenv(Nimbal::toggleDirEnv, dir.c_str(), 1);
   }
   ~ToggleDir() {
      unsetenv(Nimbal::toggleDirEnv);
      std::filesystem::remove_all(dir);
   }
   void write(std::string const& text) { std::ofstream(dir / "NimbalTcam.json") << text; }
};

TEST(Toggle, MissingFileOrToggleReadsOff) {
   ToggleDir t;
   EXPECT_FALSE(Nimbal::getToggleState("UseTcamAgentForPolicyQos", "NimbalTcam.json", true));
   t.write("{\"SomethingElse\": true}");
   EXPECT_FALSE(Nimbal::getToggleState("UseTcamAgentForPolicyQos", "NimbalTcam.json", true));
}

TEST(Toggle, ToggleOnAndOff) {
   ToggleDir t;
   t.write("{\n  \"UseTcamAgentForPolicyQos\" : true\n}\n");
   EXPECT_TRUE(Nimbal::getToggleState("UseTcamAgentForPolicyQos", "NimbalTcam.json", true));
   t.write("{\"UseTcamAgentForPolicyQos\": false}");
   EXPECT_FALSE(Nimbal::getToggleState("UseTcamAgentForPolicyQos", "NimbalTcam.json", true));
}

TEST(Toggle, NoDirectoryReadsOff) {
   unsetenv(Nimbal::toggleDirEnv);
   EXPECT_FALSE(Nimbal::getToggleState("UseTcamAgentForPolicyQos", "NimbalTcam.json", true));
}

}  // namespace
