#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "Kiv/Exception.h"
#include "Kiv/Type.h"
#include "unit/CoppHelperFixture.h"
#include "unit/SwitchFixture.h"

namespace {

using CoppTest::AttributeSpy;
using CoppTest::TraceCapture;
using Nimbal::NimbalQosCoppQCounterData;
using Nimbal::NimbalQosPolicerHwData;
using Nimbal::NimbalTcamEntryManager;
using NimbalHost::Switch;
using Oskel::ModIdPortQueueKey;
using Oskel::QosClassCounterData;

constexpr U32 unit = 0;
constexpr U32 queue = 40;
// Ethernet1 is port 1 of module 0; port 9 has no interface. Ports from 300 up have no default
// entry, so what is sent from them is counted by the test's own entries only.
constexpr U32 port1 = 1;
constexpr U32 portWithoutIntf = 9;
constexpr U32 vxlanSrcPort = 301;
constexpr U32 vxlanDefaultPort = 300;

constexpr char const* modIdRangeError = "ModId::value < ModId::min or > ModId::null not allowed";
constexpr char const* portRangeError =
    "NimbalPort::logicalPort < 0 or > NimbalPort::defaultPort not allowed";
// The functions' signatures as the compiler writes them (clang puts a space before a reference).
#ifdef __clang__
#define NIMBAL_REF " &"
#else
#define NIMBAL_REF "&"
#endif
constexpr char const* updateSignature =
    "void Nimbal::QosAclHelperV1::updateCoppIntfCounterByPortQueue(const "
    "Oskel::ModIdPortQueueKey" NIMBAL_REF ")";
constexpr char const* clearSignature =
    "void Nimbal::QosAclHelperV1::clearCoppIntfSwCounterByPortQueue(const "
    "Oskel::ModIdPortQueueKey" NIMBAL_REF ", bool)";
#undef NIMBAL_REF

Oskel::QosClassDataKey const coppKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_,
                                     "user-telnet", Qos::mapControlPlane_);

QosClassCounterData counters(U64 pktHits, U64 drop) {
   QosClassCounterData c;
   c.pktHitsIs(pktHits);
   c.dropIs(drop);
   c.byteHitsIs(pktHits * 64);
   c.dropBytesIs(drop * 64);
   return c;
}

class CoppCounters : public SwitchTest::SwitchFixture {
  protected:
   // An installed entry that counts what it matches: packets from `port` to `cpuQueue`.
   U32 countingEntry(Kiv::Ptr<NimbalTcamEntryManager> const& entryMgr, U32 port, U32 cpuQueue,
                     std::optional<U32> fixedEntry = std::nullopt) {
      Nimbal::StatTypes statTypes;
      statTypes.typeIs(0, sdk().coppStatType(0));
      statTypes.typeIs(1, sdk().coppStatType(1));
      U32 entry = 0;
      if (fixedEntry) {
         entry = sw().efpCoppDefAndVxlanEntryMgr()->getEntryWithStats(
             unit, *fixedEntry, "test entry", Nimbal::RequestKey(), statTypes);
      } else {
         entry = sw().efpCoppEntryMgr()->getEntryWithStats(unit, "test entry", Nimbal::RequestKey(),
                                                           statTypes);
      }
      EXPECT_NE(entry, 0u);
      Nimbal::setCoppEntryQual(unit, entry, port, 0xFFFFFFFF, static_cast<U8>(cpuQueue), 0x3F, 0,
                               0);
      EXPECT_EQ(entryMgr->installEntry(unit, entry), 0);
      return entry;
   }
   void send(U32 port, U32 cpuQueue, int packets) {
      for (int i = 0; i < packets; ++i) {
         sw().pktDrv()->sendToCpu(unit, port, cpuQueue);
      }
   }
   // A kernel entry for (module 0, port, queue) that has counted `hits` packets.
   U32 kernelEntryWithHits(U32 port, int hits) {
      U32 const entry = countingEntry(sw().efpCoppEntryMgr(), port, queue);
      helper()->kernelDynamicCoppDataIs(ModIdPortQueueKey(0, port, queue))->entryIs(entry);
      send(port, queue, hits);
      return entry;
   }
   // An entry of the default-and-VXLAN group that has counted `hits` packets.
   U32 vxlanEntryWithHits(U32 offset, U32 port, int hits) {
      U32 const entry = countingEntry(sw().efpCoppDefAndVxlanEntryMgr(), port, queue,
                                      Switch::efpCoppDefAndVxlanBaseIndex + offset);
      send(port, queue, hits);
      return entry;
   }
   Kiv::Ptr<Oskel::QosClassData> coppClass(std::vector<std::string> const& intfs) {
      Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(coppKey));
      for (auto const& i : intfs) {
         cls->intfIdIs(Orvik::IntfId(i));
      }
      return cls;
   }
   void classPolicerIs(std::string const& intf, S32 cpuQId) {
      helper()
          ->coppIntfPolicerDataIs(Orvik::IntfId(intf))
          ->policerDataColIs(coppKey)
          ->cpuQIdIs(cpuQId);
   }
   U64 storedCount(std::string const& intf, U32 cpuQueue) {
      auto const counterData = helper()->coppIntfCounterData(Orvik::IntfId(intf));
      if (!counterData) {
         return 0;
      }
      return counterData->qCounterColCol()
          .value(cpuQueue)
          .value_or(NimbalQosCoppQCounterData())
          .pktHits();
   }
   template <class F>
   std::string rangeErrorOf(F f) {
      try {
         f();
      } catch (Kiv::RangeException const& e) {
         return e.what();
      }
      return "no range error";
   }
};

using CoppCountersDeathTest = CoppCounters;

// Hits of a port-queue entry

TEST_F(CoppCounters, PortQueueWithoutKernelEntryReadsZero) {
   send(port1, queue, 5);

   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(port("Ethernet1"), queue), 0u);
}

TEST_F(CoppCounters, PortQueueWithoutVxlanRecordReadsTheKernelEntryOnly) {
   kernelEntryWithHits(port1, 7);
   vxlanEntryWithHits(256, vxlanSrcPort, 4);

   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(port("Ethernet1"), queue), 7u);
}

TEST_F(CoppCounters, PortQueueAddsTheVxlanSourcePortEntry) {
   kernelEntryWithHits(port1, 7);
   U32 const vxlanEntry = vxlanEntryWithHits(256, vxlanSrcPort, 4);
   helper()->kernelDynamicCoppVxlanDataIs(ModIdPortQueueKey(0, port1, queue))->entryIs(vxlanEntry);

   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(port("Ethernet1"), queue), 11u);
   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(port("Ethernet1"), queue + 1), 0u);
}

// Hits of a per-port default policer

TEST_F(CoppCounters, DefaultPolicerReadsItsEntryAndTheVxlanDefaultEntry) {
   send(port1, queue, 5);
   EXPECT_EQ(helper()->getPortDefaultCoppPolicerPktHits(unit, "Ethernet1"), 5u);

   U32 const vxlanEntry = vxlanEntryWithHits(768 + port1, vxlanDefaultPort, 3);
   helper()->portDefaultCoppPolicerVxlanHwDataIs("Ethernet1",
                                                 NimbalQosPolicerHwData(1, 1, vxlanEntry, 1));

   EXPECT_EQ(helper()->getPortDefaultCoppPolicerPktHits(unit, "Ethernet1"), 8u);
   // Both entries are read in the unit asked for.
   EXPECT_EQ(helper()->getPortDefaultCoppPolicerPktHits(unit + 1, "Ethernet1"), 0u);
}

TEST_F(CoppCounters, PortWithoutDefaultRecordReadsZeroEvenWithAVxlanDefault) {
   U32 const vxlanEntry = vxlanEntryWithHits(768 + port1, vxlanDefaultPort, 3);
   helper()->portDefaultCoppPolicerVxlanHwDataIs("Ethernet1",
                                                 NimbalQosPolicerHwData(1, 1, vxlanEntry, 1));
   helper()->portDefaultCoppPolicerHwDataDel("Ethernet1");
   sdk().journalDelAll();

   EXPECT_EQ(helper()->getPortDefaultCoppPolicerPktHits(unit, "Ethernet1"), 0u);
   EXPECT_TRUE(sdk().journalTexts("bcm_field_stat_get").empty());
}

// Folding the hits of an entry into software

TEST_F(CoppCounters, UpdateAddsTheEntryHitsToTheStoredCount) {
   kernelEntryWithHits(port1, 7);
   U32 const vxlanEntry = vxlanEntryWithHits(256, vxlanSrcPort, 4);
   helper()->kernelDynamicCoppVxlanDataIs(ModIdPortQueueKey(0, port1, queue))->entryIs(vxlanEntry);
   helper()
       ->coppIntfCounterDataIs("Ethernet1")
       ->qCounterColIs(queue, NimbalQosCoppQCounterData(100));

   helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, port1, queue));
   EXPECT_EQ(storedCount("Ethernet1", queue), 111u);

   // While the entry is there its hits are added again.
   helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, port1, queue));
   EXPECT_EQ(storedCount("Ethernet1", queue), 122u);
}

TEST_F(CoppCounters, UpdateOfAFreshQueueStartsFromZero) {
   kernelEntryWithHits(port1, 6);
   helper()->coppIntfCounterDataIs("Ethernet1");

   helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, port1, queue));

   EXPECT_EQ(storedCount("Ethernet1", queue), 6u);
}

TEST_F(CoppCounters, UpdateAdditionWrapsAt64Bits) {
   kernelEntryWithHits(port1, 3);
   helper()
       ->coppIntfCounterDataIs("Ethernet1")
       ->qCounterColIs(queue, NimbalQosCoppQCounterData(std::numeric_limits<U64>::max()));

   helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, port1, queue));

   EXPECT_EQ(storedCount("Ethernet1", queue), 2u);
}

TEST_F(CoppCounters, UpdateIsTracedWithItsSignatureAndKey) {
   kernelEntryWithHits(port1, 1);
   helper()->coppIntfCounterDataIs("Ethernet1");
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, port1, queue));

   std::vector<std::string> const expected = {std::string(updateSignature) +
                                              " modId: 0 port: 1 queue: 40"};
   EXPECT_EQ(trace.texts(), expected);
   EXPECT_EQ(trace.lines().at(0).level, 4);
}

TEST_F(CoppCounters, UpdateOfAPortWithoutInterfaceLosesTheHitsSilently) {
   kernelEntryWithHits(portWithoutIntf, 5);
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, portWithoutIntf, queue));

   EXPECT_EQ(helper()->coppIntfCounterData(), 0u);
   EXPECT_EQ(trace.texts().size(), 1u);
}

TEST_F(CoppCounters, UpdateChecksTheModuleBeforeReadingHits) {
   helper()->kernelDynamicCoppDataIs(ModIdPortQueueKey(65, port1, queue))->entryIs(1);
   helper()->kernelDynamicCoppDataIs(ModIdPortQueueKey(64, port1, queue))->entryIs(1);
   sdk().journalDelAll();

   EXPECT_EQ(rangeErrorOf([&] {
                helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(65, port1, queue));
             }),
             modIdRangeError);
   EXPECT_TRUE(sdk().journal().empty());
   // 64 is the no-module value and passes the check; module 64 has no interfaces.
   EXPECT_EQ(rangeErrorOf([&] {
                helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(64, port1, queue));
             }),
             "no range error");
}

TEST_F(CoppCounters, UpdateReadsTheHitsBeforeCheckingThePort) {
   U32 const entry = countingEntry(sw().efpCoppEntryMgr(), 5, queue);
   helper()->kernelDynamicCoppDataIs(ModIdPortQueueKey(0, 1024, queue))->entryIs(entry);
   helper()->kernelDynamicCoppDataIs(ModIdPortQueueKey(0, 1023, queue))->entryIs(entry);
   sdk().journalDelAll();

   EXPECT_EQ(rangeErrorOf([&] {
                helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, 1024, queue));
             }),
             portRangeError);
   EXPECT_EQ(sdk().journalTexts("bcm_field_stat_get").size(), 1u);
   EXPECT_EQ(rangeErrorOf([&] {
                helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, 1023, queue));
             }),
             "no range error");
}

TEST_F(CoppCountersDeathTest, UpdateOfAKeyWithoutKernelEntryIsFatal) {
   EXPECT_DEATH(helper()->updateCoppIntfCounterByPortQueue(ModIdPortQueueKey(0, port1, queue)),
                "Assertion `coppData' failed");
}

// Snapshots on clear

TEST_F(CoppCounters, ConfigurationClearMovesOnlyThePollBaseline) {
   ModIdPortQueueKey const key(0, port1, queue);
   helper()->lastClearCoppSwCounterIs(key, counters(1, 1));
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);

   helper()->clearCoppIntfSwCounterByPortQueue(key, true);

   EXPECT_EQ(helper()->lastClearCoppSwCounter(key), counters(1, 1));
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(key), counters(13, 3));
}

TEST_F(CoppCounters, FullClearMovesBothBaselines) {
   ModIdPortQueueKey const key(0, port1, queue);
   helper()->lastClearCoppSwCounterIs(key, counters(1, 1));
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);

   helper()->clearCoppIntfSwCounterByPortQueue(key, false);

   QosClassCounterData const expected = counters(13, 3);
   EXPECT_EQ(helper()->lastClearCoppSwCounter(key), expected);
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(key), expected);
   EXPECT_EQ(expected.byteHits(), 832u);
   EXPECT_EQ(expected.dropBytes(), 192u);
}

TEST_F(CoppCounters, ClearCommandReachesTheFullClearByName) {
   ModIdPortQueueKey const key(0, port1, queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);

   Kiv::invoke(*helper(), "clearCoppIntfSwCounterByPortQueue", {"0", "1", "40", "false"});

   EXPECT_EQ(helper()->lastClearCoppSwCounter(key), counters(13, 3));
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(key), counters(13, 3));
}

TEST_F(CoppCounters, ClearReadsTheDriverOnTheUnitOfTheChipInformation) {
   ModIdPortQueueKey const key(0, port1, queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);
   sw().pktDrv()->ddeCoppCountersIs(5, port1, queue, 1, 1);
   sw().pktDrv()->ddeCoppCountersIs(128, port1, queue, 2, 2);

   sw().scsd()->nimbalModIdIs(0, Nimbal::NimbalModInfo(0, 0, NimbalCentral::ChipInfo(5)));
   helper()->clearCoppIntfSwCounterByPortQueue(key, true);
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(key), counters(2, 1));

   // A module without chip information reads the default record's unit.
   sw().scsd()->nimbalModIdDel(0);
   helper()->clearCoppIntfSwCounterByPortQueue(key, true);
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(key), counters(4, 2));
}

TEST_F(CoppCounters, ClearOfAPortWithoutInterfaceChangesNothing) {
   ModIdPortQueueKey const key(0, portWithoutIntf, queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, portWithoutIntf, queue, 3, 10);
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->clearCoppIntfSwCounterByPortQueue(key, false);

   EXPECT_EQ(helper()->lastClearCoppSwCounter(), 0u);
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(), 0u);
   EXPECT_EQ(trace.texts().size(), 1u);
}

TEST_F(CoppCounters, ClearIsTracedWithItsSignatureAndKey) {
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, port1, queue), true);

   std::vector<std::string> const expected = {std::string(clearSignature) +
                                              " modId: 0 port: 1 queue: 40"};
   EXPECT_EQ(trace.texts(), expected);
}

TEST_F(CoppCounters, ClearChecksTheModuleThenThePort) {
   auto clear = [this](U32 modId, U32 port) {
      return rangeErrorOf([&] {
         helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(modId, port, 1), true);
      });
   };
   EXPECT_EQ(clear(65, 1), modIdRangeError);
   EXPECT_EQ(clear(65, 1024), modIdRangeError);
   EXPECT_EQ(clear(0, 1024), portRangeError);
   EXPECT_EQ(clear(64, 1023), "no range error");
   EXPECT_EQ(helper()->lastClearCoppSwCfgCounter(), 0u);
}

TEST_F(CoppCounters, RangeErrorsComeAfterTheTrace) {
   TraceCapture trace({"NimbalQosSm"}, 4);

   rangeErrorOf(
       [&] { helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(65, 1, 2), true); });

   std::vector<std::string> const expected = {std::string(clearSignature) +
                                              " modId: 65 port: 1 queue: 2"};
   EXPECT_EQ(trace.texts(), expected);
}

// The counter poll

TEST_F(CoppCounters, PollRightAfterAClearReadsZero) {
   classPolicerIs("Ethernet1", queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, port1, queue), true);

   EXPECT_EQ(helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"})), QosClassCounterData());
}

TEST_F(CoppCounters, PollCountsFromTheLastConfigurationClearInPacketsAnd64ByteUnits) {
   classPolicerIs("Ethernet1", queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, port1, queue), true);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 5, 20);

   QosClassCounterData const result = helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"}));

   EXPECT_EQ(result.pktHits(), 12u);
   EXPECT_EQ(result.drop(), 2u);
   EXPECT_EQ(result.byteHits(), 12u * 64);
   EXPECT_EQ(result.dropBytes(), 2u * 64);
   EXPECT_EQ(result.exceedPkts(), 0u);
   EXPECT_EQ(result.violatePkts(), 0u);
}

TEST_F(CoppCounters, PollIgnoresTheShowBaseline) {
   classPolicerIs("Ethernet1", queue);
   helper()->lastClearCoppSwCounterIs(ModIdPortQueueKey(0, port1, queue), counters(4, 1));
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);

   EXPECT_EQ(helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"})), counters(13, 3));
}

TEST_F(CoppCounters, PollReadsRealTrafficOfTheClassQueue) {
   classPolicerIs("Ethernet1", queue);
   send(port1, queue, 4);
   send(port1, queue + 1, 2);

   EXPECT_EQ(helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"})), counters(4, 0));
}

TEST_F(CoppCounters, PollWrapsWhenTheDriverCountersRestartedAfterTheClear) {
   classPolicerIs("Ethernet1", queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(0, port1, queue), true);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 0, 1);

   QosClassCounterData const result = helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"}));

   EXPECT_EQ(result.pktHits(), U64(0) - 12);
   EXPECT_EQ(result.drop(), U64(0) - 3);
   EXPECT_EQ(result.byteHits(), U64(64) - 13 * 64);
   EXPECT_EQ(result.dropBytes(), U64(0) - 3 * 64);
}

TEST_F(CoppCounters, PollSubtractsPerInterfaceSharedPolicerDropsOfTheSnapshot) {
   classPolicerIs("Ethernet1", queue);
   QosClassCounterData snapshot;
   snapshot.dropCountIntfSharedPolicerIs("Ethernet2", 5);
   helper()->lastClearCoppSwCfgCounterIs(ModIdPortQueueKey(0, port1, queue), snapshot);

   QosClassCounterData const result = helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"}));

   EXPECT_EQ(result.dropCountIntfSharedPolicer().size(), 1u);
   EXPECT_EQ(result.dropCountIntfSharedPolicer("Ethernet2"), U64(0) - 5);
}

TEST_F(CoppCounters, PollWithoutPolicerRecordReadsZero) {
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 10);
   EXPECT_EQ(helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"})), QosClassCounterData());

   Oskel::QosClassDataKey const otherKey("copp-system-policy", Qos::mapControlPlane_, Qos::input_,
                                         "user-other", Qos::mapControlPlane_);
   helper()->coppIntfPolicerDataIs("Ethernet1")->policerDataColIs(otherKey)->cpuQIdIs(queue);
   EXPECT_EQ(helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"})), QosClassCounterData());
}

TEST_F(CoppCounters, PollCountsTheFirstInterfaceOfTheClassOnly) {
   classPolicerIs("Ethernet2", queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, 2, queue, 3, 10);
   auto cls = coppClass({"Ethernet2", "Ethernet1"});

   EXPECT_EQ(helper()->coppCounterUpdateRequest(cls), QosClassCounterData());

   classPolicerIs("Ethernet1", queue);
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 1, 1);
   EXPECT_EQ(helper()->coppCounterUpdateRequest(cls), counters(2, 1));
}

TEST_F(CoppCounters, PollIsTracedWithTheRawCountersAndTheBaseline) {
   classPolicerIs("Ethernet1", queue);
   helper()->lastClearCoppSwCfgCounterIs(ModIdPortQueueKey(0, port1, queue), counters(4, 1));
   sw().pktDrv()->ddeCoppCountersIs(unit, port1, queue, 3, 7);
   TraceCapture trace({"NimbalQosSm"}, 4);

   helper()->coppCounterUpdateRequest(coppClass({"Ethernet1"}));

   std::vector<std::string> const expected = {
       "coppCounterUpdateRequest",
       "coppCounterUpdateRequest ddeCounter.drop: 3 lastClearCoppSwCfgCounter.drop: 1 "
       "ddeCounter.pktHits: 10 lastClearCoppSwCfgCounter.pktHits: 4"};
   EXPECT_EQ(trace.texts(), expected);
}

TEST_F(CoppCountersDeathTest, PollOfANonControlPlaneInputClassIsFatal) {
   Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(
       Oskel::QosClassDataKey("copp-system-policy", Qos::mapControlPlane_, Qos::output_,
                              "user-telnet", Qos::mapControlPlane_)));

   EXPECT_DEATH(helper()->coppCounterUpdateRequest(cls),
                "Assertion `\\( key.pmapType\\(\\) == Qos::mapControlPlane_ \\) && \\( "
                "key.direction\\(\\) == Qos::input_ \\) && \\( key.cmapType\\(\\) == "
                "Qos::mapControlPlane_ \\)' failed");
}

// A switch whose second module is on unit 1, with Ethernet9 on its port 3.
class CoppCountersTwoUnits : public CoppCounters {
  protected:
   NimbalHost::SwitchConfig switchConfig() const override {
      NimbalHost::SwitchConfig config;
      config.modules.push_back(NimbalHost::SwitchModule{1, 1});
      config.interfaces.push_back(NimbalHost::SwitchInterface{"Ethernet9", 1, 3});
      return config;
   }
};

TEST_F(CoppCountersTwoUnits, PollReadsTheDriverOnThePortsUnit) {
   classPolicerIs("Ethernet9", queue);
   sw().pktDrv()->ddeCoppCountersIs(0, 3, queue, 9, 9);
   sw().pktDrv()->ddeCoppCountersIs(1, 3, queue, 2, 3);

   EXPECT_EQ(helper()->coppCounterUpdateRequest(coppClass({"Ethernet9"})), counters(5, 2));

   // Its baseline is keyed by module, port and queue.
   helper()->clearCoppIntfSwCounterByPortQueue(ModIdPortQueueKey(1, 3, queue), true);
   EXPECT_EQ(helper()->coppCounterUpdateRequest(coppClass({"Ethernet9"})), QosClassCounterData());
}

// The operations that do nothing

TEST_F(CoppCounters, EmptyClearsAndQueueCounterDisplayHaveNoEffect) {
   kernelEntryWithHits(port1, 3);
   helper()->coppIntfCounterDataIs("Ethernet1")->qCounterColIs(queue, NimbalQosCoppQCounterData(9));
   helper()->lastClearCoppSwCounterIs(ModIdPortQueueKey(0, port1, queue), counters(1, 0));
   U64 const defaultHits = helper()->getPortDefaultCoppPolicerPktHits(unit, "Ethernet1");
   int fds[2];
   ASSERT_EQ(::pipe(fds), 0);
   AttributeSpy spy(helper().ptr());
   TraceCapture trace({"NimbalQosSm", "ApiNimbal"}, 9);
   sdk().journalDelAll();

   helper()->clearPortDefaultCoppPolicerPktHits(unit, "Ethernet1");
   helper()->clearIntfQueueCoppPolicerPktHits(port("Ethernet1"), queue);
   helper()->clearIntfCoppCounters();
   helper()->showCpuIntfCoppQueueCounters(static_cast<U32>(fds[1]));

   ::close(fds[1]);
   char c;
   EXPECT_EQ(::read(fds[0], &c, 1), 0);
   ::close(fds[0]);
   EXPECT_TRUE(spy.events().empty());
   EXPECT_TRUE(trace.texts().empty());
   EXPECT_TRUE(sdk().journal().empty());
   EXPECT_EQ(storedCount("Ethernet1", queue), 9u);
   EXPECT_EQ(helper()->lastClearCoppSwCounter(), 1u);
   EXPECT_EQ(helper()->getIntfQueueCoppPolicerPktHits(port("Ethernet1"), queue), 3u);
   EXPECT_EQ(helper()->getPortDefaultCoppPolicerPktHits(unit, "Ethernet1"), defaultHits);
}

}  // namespace
