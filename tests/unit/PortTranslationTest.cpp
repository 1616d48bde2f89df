#include <gtest/gtest.h>

#include <string>

#include "Kiv/Exception.h"
#include "unit/CoppHelperFixture.h"

namespace {

using Nimbal::getIntfIdFromNimbalPort;
using Nimbal::getNimbalPortFromIntfId;
using Nimbal::getNimbalPortFromModIdPortQueueKey;
using NimbalTypes::NimbalPort;
using Oskel::ModIdPortQueueKey;

class PortTranslation : public ::testing::Test {
  protected:
   Kiv::Ptr<Nimbal::NimbalCommonSmData> scsd{new Nimbal::NimbalCommonSmData()};
};

std::string rangeErrorOf(Kiv::Ptr<Nimbal::NimbalCommonSmData> const& scsd,
                         ModIdPortQueueKey const& key) {
   try {
      getNimbalPortFromModIdPortQueueKey(scsd, key);
   } catch (Kiv::RangeException const& e) {
      return e.what();
   }
   return "no range error";
}

// Interface to port

TEST_F(PortTranslation, InterfaceInNeitherMapYieldsTheNoPortValue) {
   NimbalPort const port = getNimbalPortFromIntfId(scsd, "Ethernet9");
   EXPECT_EQ(port.modId(), 0xDEAD);
   EXPECT_EQ(port.unit(), 0xFFFF);
   EXPECT_EQ(port.logicalPort(), 1023);
   EXPECT_EQ(port.flags(), 0u);
}

TEST_F(PortTranslation, FrontPanelInterfaceYieldsItsPort) {
   scsd->intfPortIs("Ethernet1", NimbalPort(1, 0, 5));
   scsd->intfPortIs("Ethernet1", NimbalPort(2, 1, 6), true);
   EXPECT_TRUE(getNimbalPortFromIntfId(scsd, "Ethernet1") == NimbalPort(1, 0, 5));
}

TEST_F(PortTranslation, InterfaceMappedToNoPortIsLookedUpInTheFabricMap) {
   scsd->nimbalIntfToPortIs("Fabric1", NimbalPort::noPort());
   scsd->nimbalFabricIntfToPortIs("Fabric1", NimbalPort(3, 1, 40));
   EXPECT_TRUE(getNimbalPortFromIntfId(scsd, "Fabric1") == NimbalPort(3, 1, 40));
}

TEST_F(PortTranslation, FabricOnlyInterfaceYieldsItsFabricPort) {
   scsd->intfPortIs("Fabric2", NimbalPort(3, 1, 41), true);
   EXPECT_TRUE(getNimbalPortFromIntfId(scsd, "Fabric2") == NimbalPort(3, 1, 41));
}

TEST_F(PortTranslation, InterfaceMappedToNoPortEverywhereYieldsNoPort) {
   scsd->nimbalIntfToPortIs("Ethernet3", NimbalPort::noPort());
   EXPECT_TRUE(getNimbalPortFromIntfId(scsd, "Ethernet3") == NimbalPort::noPort());
}

// Port to interface

TEST_F(PortTranslation, PortThatNoMapHoldsYieldsTheEmptyInterface) {
   NimbalPort port(0, 0, 77);
   EXPECT_TRUE(getIntfIdFromNimbalPort(scsd, port) == Orvik::IntfId::emptyIntfId());
}

TEST_F(PortTranslation, FrontPanelPortYieldsItsInterfaceBeforeTheFabricMap) {
   scsd->nimbalPortToIntfIs(NimbalPort(0, 0, 5), "Ethernet5");
   scsd->nimbalFabricPortToIntfIs(NimbalPort(0, 0, 5), "Fabric5");
   NimbalPort port(0, 0, 5);
   EXPECT_TRUE(getIntfIdFromNimbalPort(scsd, port) == Orvik::IntfId("Ethernet5"));
}

TEST_F(PortTranslation, PortMappedToTheEmptyInterfaceIsLookedUpInTheFabricMap) {
   scsd->nimbalPortToIntfIs(NimbalPort(0, 0, 6), Orvik::IntfId::emptyIntfId());
   scsd->nimbalFabricPortToIntfIs(NimbalPort(0, 0, 6), "Fabric6");
   NimbalPort port(0, 0, 6);
   EXPECT_TRUE(getIntfIdFromNimbalPort(scsd, port) == Orvik::IntfId("Fabric6"));
}

TEST_F(PortTranslation, PortsAreComparedWholeIncludingUnitAndFourthField) {
   scsd->intfPortIs("Ethernet7", NimbalPort(0, 0, 7));
   NimbalPort otherUnit(0, 1, 7);
   NimbalPort otherFlags(0, 0, 7, 1);
   EXPECT_TRUE(getIntfIdFromNimbalPort(scsd, otherUnit).empty());
   EXPECT_TRUE(getIntfIdFromNimbalPort(scsd, otherFlags).empty());
}

// (module id, port, queue) to port

TEST_F(PortTranslation, KeyTakesTheUnitOfItsModule) {
   scsd->nimbalModIdToUnitIs(2, 1);
   NimbalPort const port = getNimbalPortFromModIdPortQueueKey(scsd, ModIdPortQueueKey(2, 33, 9));
   EXPECT_TRUE(port == NimbalPort(2, 1, 33, 0));
}

TEST_F(PortTranslation, KeyOfAnUnknownModuleIsOnUnitZero) {
   EXPECT_TRUE(getNimbalPortFromModIdPortQueueKey(scsd, ModIdPortQueueKey(5, 1, 9)) ==
               NimbalPort(5, 0, 1, 0));
}

TEST_F(PortTranslation, ModuleId64IsAcceptedAnd65IsARangeError) {
   EXPECT_TRUE(getNimbalPortFromModIdPortQueueKey(scsd, ModIdPortQueueKey(64, 1, 9)) ==
               NimbalPort(64, 0, 1, 0));
   EXPECT_EQ(rangeErrorOf(scsd, ModIdPortQueueKey(65, 1, 9)),
             "ModId::value < ModId::min or > ModId::null not allowed");
}

TEST_F(PortTranslation, ModuleIdIsCheckedOnItsLow16Bits) {
   EXPECT_TRUE(getNimbalPortFromModIdPortQueueKey(scsd, ModIdPortQueueKey(0x10003, 1, 9)) ==
               NimbalPort(3, 0, 1, 0));
   EXPECT_EQ(rangeErrorOf(scsd, ModIdPortQueueKey(0x1FFFF, 1, 9)),
             "ModId::value < ModId::min or > ModId::null not allowed");
}

TEST_F(PortTranslation, Port1023IsAcceptedAnd1024IsARangeError) {
   EXPECT_TRUE(getNimbalPortFromModIdPortQueueKey(scsd, ModIdPortQueueKey(0, 1023, 9)) ==
               NimbalPort(0, 0, 1023, 0));
   EXPECT_EQ(rangeErrorOf(scsd, ModIdPortQueueKey(0, 1024, 9)),
             "NimbalPort::logicalPort < 0 or > NimbalPort::defaultPort not allowed");
}

TEST_F(PortTranslation, ModuleIdIsCheckedBeforeThePort) {
   EXPECT_EQ(rangeErrorOf(scsd, ModIdPortQueueKey(65, 1024, 9)),
             "ModId::value < ModId::min or > ModId::null not allowed");
}

}  // namespace
