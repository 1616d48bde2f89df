// Every assertion of the library, provoked through its operations: a broken invariant of the
// helper's own state ends the agent with the assertion's exact text, naming the site. The table
// says which sites exist and is compared with the library's sources; a site that cannot be
// reached says why.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Kiv/Type.h"
#include "Nimbal/Toggle.h"
#include "NimbalCentral/ChipInfo.h"
#include "Oskel/AclTypes.h"
#include "SourceTree.h"
#include "unit/AgentBench.h"
#include "unit/CoppHelperFixture.h"
#include "unit/HelperSlots.h"
#include "unit/LibrarySourceScan.h"

namespace {

using AgentTest::AgentBench;
using Key = Oskel::ModIdPortQueueKey;
using SourceScan::regexQuoted;

constexpr char aclPorts[] = "NimbalQos/NimbalQosAclPorts.cpp";
constexpr char coppCounters[] = "NimbalQos/NimbalQosCoppCounters.cpp";
constexpr char coppDefaults[] = "NimbalQos/NimbalQosCoppDefaults.cpp";
constexpr char coppPolicers[] = "NimbalQos/NimbalQosCoppPolicers.cpp";
constexpr char coppPortQueue[] = "NimbalQos/NimbalQosCoppPortQueue.cpp";
constexpr char coppShow[] = "NimbalQos/NimbalQosCoppShow.cpp";
constexpr char coppVerify[] = "NimbalQos/NimbalQosCoppVerify.cpp";
constexpr char coppVxlan[] = "NimbalQos/NimbalQosCoppVxlan.cpp";
constexpr char protectionHelper[] = "NimbalQos/NimbalQosProtectionHelper.cpp";
constexpr char sdkCall[] = "NimbalQos/NimbalQosSdkCall.cpp";
constexpr char sharedHelper[] = "NimbalQos/NimbalQosSharedHelper.cpp";
constexpr char tcamHelper[] = "NimbalQos/NimbalQosTcamProtectionHelper.cpp";

constexpr char coppInputKeyText[] =
    "( key.pmapType() == Qos::mapControlPlane_ ) && ( key.direction() == Qos::input_ ) && "
    "( key.cmapType() == Qos::mapControlPlane_ )";
constexpr char coppPmap[] = "copp-system-policy";
constexpr U32 base = NimbalHost::Switch::efpCoppDefAndVxlanBaseIndex;

// Switches

NimbalHost::SwitchConfig vxlanSwitch() {
   NimbalHost::SwitchConfig config;
   config.vxlanWorkaround = true;
   return config;
}

// Classes of the control-plane policy map, as the agent's QoS layer describes them.

Kiv::Ptr<Oskel::QosClassData> coppClass(std::string const& cmapName,
                                        std::vector<std::string> const& intfs = {"Ethernet1"},
                                        Qos::Direction direction = Qos::input_,
                                        Qos::MapType cmapType = Qos::mapControlPlane_,
                                        std::string const& pmapName = coppPmap) {
   Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(
       Oskel::QosClassDataKey(pmapName, Qos::mapControlPlane_, direction, cmapName, cmapType)));
   for (auto const& intf : intfs) {
      cls->intfIdIs(Orvik::IntfId(intf));
   }
   cls->policerDataIs(new Qos::PolicerData(300, Qos::rateUnitPps_, 30));
   return cls;
}

Kiv::Ptr<Oskel::QosClassData> onQueue(Kiv::Ptr<Oskel::QosClassData> cls, S32 cpuQId) {
   cls->cpuQIdIs(cpuQId);
   return cls;
}

// Takes the first dynamic queue (40) for a class map, as the MMU does for whoever asks.
void takeQueue40(AgentBench& b, std::string const& pmapName, std::string const& cmapName,
                 Qos::MapType cmapType) {
   Kiv::Ptr<Qos::PolicyMapStatus> const pmap =
       b.sw().qosStatus()->pmapStatusIs(Qos::mapControlPlane_, pmapName);
   Kiv::Ptr<Qos::ClassMapStatus> const cmap = pmap->cmapStatusIs(cmapType, cmapName);
   if (b.sw().mmuSm()->allocateDynamicCpuQ(pmap, cmap) != 40) {
      throw std::logic_error("queue 40 was not free");
   }
}

// Removes a CPU queue from the MMU's collection when the class map is recorded in the policy
// map's hardware status: the queue that was just allocated is gone when it is looked up.
class QueueTakenAway : public Kiv::NotifieeBase {
  public:
   QueueTakenAway(Kiv::Ptr<Qos::PolicyMapHwStatus> const& status,
                  Kiv::Ptr<Nimbal::MmuCpuQColl> const& cpuQColl, U32 queue)
       : status_(status), cpuQColl_(cpuQColl), queue_(queue) {
      notifierBaseIs(status_.ptr());
   }
   ~QueueTakenAway() override { notifierBaseIs(nullptr); }
   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const&) override {
      if (std::string(attr) == "cmap") {
         cpuQColl_->cpuQDel(queue_);
      }
   }

  private:
   Kiv::Ptr<Qos::PolicyMapHwStatus> status_;
   Kiv::Ptr<Nimbal::MmuCpuQColl> cpuQColl_;
   U32 queue_;
};

void showByName(AgentBench& b, char const* table) {
   int const fd = ::open("/dev/null", O_WRONLY);
   Kiv::invoke(*b.helper(), table, {std::to_string(fd)});
   ::close(fd);
}

Kiv::Ptr<Oskel::QosPolicyMapState> coppPmapState() {
   return new Oskel::QosPolicyMapState(coppPmap);
}

// An entry of the IPv4 CoPP policy group, as the agent's QoS layer makes it.
U32 policyEntry(AgentBench& b) {
   return b.sw().coppIpEntryMgr()->getEntryWithStats(b.sw().unit(), "copp-system-bgp",
                                                     Nimbal::RequestKey(), {});
}

// The TCAM-agent variant as the factory builds it in a process whose toggle is on. Only a
// fresh process can read the toggle as on: the factory reads it once per process.
Kiv::Ptr<Nimbal::QosTcamAclHelperV1> tcamVariant(CoppTest::CoppPlatform const& platform) {
   std::string const dir = SourceTree::path("tests/unit/toggles/tcam-agent-on");
   ::setenv(Nimbal::toggleDirEnv, dir.c_str(), 1);
   Kiv::Ptr<Nimbal::QosTcamAclHelperV1> const helper =
       Kiv::ptr_cast<Nimbal::QosTcamAclHelperV1>(platform.viaFactory());
   if (!helper) {
      throw std::logic_error("the factory did not build the TCAM-agent variant");
   }
   return helper;
}

void tcamSetEntryPorts(Kiv::Ptr<NimbalTcam::RequestConfig> const& config, U32 unit,
                       Oskel::AclKey const& filedAcl = Oskel::AclKey("acl-bgp", 1),
                       Oskel::QosClassDataKey const& filedClass = SlotTest::coppKey) {
   Kiv::ActivityScope const activity;
   CoppTest::CoppPlatform platform;
   Kiv::Ptr<Nimbal::QosTcamAclHelperV1> const helper = tcamVariant(platform);
   helper->requestConfigIs(filedClass, filedAcl, unit, config);
   helper->setEntryPorts(coppPmapState(), SlotTest::classOf(SlotTest::coppKey),
                         Qos::matchIpAccessGroup_, Oskel::AclKey("acl-bgp", 1), 3, U64(0x10005));
}

// One assertion of the library.
struct AssertionSite {
   char const* name;  // what provokes it
   char const* file;
   // What the site says: the asserted expression, the literal message, the expression that
   // makes the message, or the name of the library's asserting macro.
   char const* says;
   int occurrence = 1;  // among the sites of the file that say the same, in source order
   // The text printed, where it is not what the site says.
   char const* message = nullptr;
   // Where the printed position points when it is not the site itself: the n-th use of a
   // macro of the same file.
   char const* reportedAt = nullptr;
   int reportedOccurrence = 0;
   std::function<void()> provoke = {};
   char const* unreachable = nullptr;  // why nothing can provoke it
};

void PrintTo(AssertionSite const& site, std::ostream* os) {
   *os << site.name;
}

AssertionSite const assertionSites[] = {
    // Policy ACL entry ports
    {.name = "EntryPortsOfAnEntryNoManagerHolds",
     .file = aclPorts,
     .says = "entryMgr",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->setEntryPorts(coppPmapState(), coppClass("copp-system-bgp"),
                                      Qos::matchIpAccessGroup_, Oskel::AclKey("acl-bgp", 0),
                                      b.sw().unit(), U64(0x7777));
         }},
    {.name = "PortDifferenceOfAPolicyEntryInSimulation",
     .file = aclPorts,
     .says = "message.c_str()",
     .message = "copp-system-policy/acl-bgp seq 10 incorrect ports bit mask",
     .provoke =
         [] {
            AgentBench b;
            U32 const entry = policyEntry(b);
            ::setenv("SIMULATION_VMID", "1", 1);
            b.helper()->verifyRulePortsForUnit(
                coppPmapState(), coppClass("copp-system-bgp"), Qos::matchIpAccessGroup_,
                Oskel::AclKey("acl-bgp", 0), b.sw().unit(), entry, 10, 0, 34, Acl::actionPermit_);
         }},
    // Counters
    {.name = "CounterPollOfAnOutputClass",
     .file = coppCounters,
     .says = "NIMBAL_ASSERT_COPP_INPUT_KEY",
     .message = coppInputKeyText,
     .provoke =
         [] {
            AgentBench b;
            b.helper()->counterUpdateRequest(
                coppClass("copp-system-bgp", {"Ethernet1"}, Qos::output_), Oskel::AclKey());
         }},
    {.name = "CountersFoldedForAKeyNeverProgrammed",
     .file = coppCounters,
     .says = "coppData",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->updateCoppIntfCounterByPortQueue(Key(0, 5, 45));
         }},
    // Default rates
    {.name = "DefaultRatesWithAQueueMissing",
     .file = coppDefaults,
     .says = "mmuSm()->cpuQColl()->cpuQs() == 48",
     .provoke =
         [] {
            AgentBench b;
            b.sw().mmuSm()->cpuQColl()->cpuQDel(47);
            b.helper()->createDefaultCoppRates();
         }},
    // CPU queues and class policers
    {.name = "QueueAllocationWithoutTheMapTypeInTheHardwareStatus",
     .file = coppPolicers,
     .says = "pmapTypeSliceHwStatus",
     .provoke =
         [] {
            AgentBench b;
            b.sw().mmuSm()->pmapHwStatusIs(new Qos::PolicyMapSliceHwStatus());
            b.police("Ethernet1", "user-telnet", 300, 30);
         }},
    {.name = "QueueAllocationWithoutThePolicyMapInTheHardwareStatus",
     .file = coppPolicers,
     .says = "pmapSliceHwStatus",
     .provoke =
         [] {
            AgentBench b;
            Kiv::Ptr<Qos::PolicyMapSliceHwStatus> const status(new Qos::PolicyMapSliceHwStatus());
            status->pmapHwStatusIs(
                Qos::PolicyMapHwStatusKey("another-pmap", Qos::mapControlPlane_, Qos::input_));
            b.sw().mmuSm()->pmapHwStatusIs(status);
            b.police("Ethernet1", "user-telnet", 300, 30);
         }},
    {.name = "ClassPolicerOfAClassWithoutAnyQueue",
     .file = coppPolicers,
     .says = "cpuQId >= 0",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->createAndAttachPolicer(onQueue(coppClass("user-unknown"), -1));
         }},
    {.name = "ClassPolicerOnAQueueBeyondTheTable",
     .file = coppPolicers,
     .says = "cpuQ",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->createAndAttachPolicer(onQueue(coppClass("user-telnet"), 50));
         }},
    {.name = "ClassPolicerOnAQueueNobodyHolds",
     .file = coppPolicers,
     .says = "cpuQ->allocated()",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->createAndAttachPolicer(onQueue(coppClass("user-telnet"), 41));
         }},
    {.name = "ClassPolicerOnAQueueOfAnotherPolicyMap",
     .file = coppPolicers,
     .says = "cpuQ->pmapName() == mmuSm()->coppPMapName()",
     .provoke =
         [] {
            AgentBench b;
            takeQueue40(b, "another-pmap", "user-telnet", Qos::mapControlPlane_);
            b.helper()->createAndAttachPolicer(onQueue(coppClass("user-telnet"), 40));
         }},
    {.name = "ClassPolicerOnAQueueOfAnotherClassMapType",
     .file = coppPolicers,
     .says = "cpuQ->cmapType() == key.cmapType()",
     .provoke =
         [] {
            AgentBench b;
            takeQueue40(b, coppPmap, "user-telnet", Qos::mapQos_);
            b.helper()->createAndAttachPolicer(onQueue(coppClass("user-telnet"), 40));
         }},
    {.name = "ClassPolicerOnTheQueueOfAnotherClass",
     .file = coppPolicers,
     .says = "cpuQ->cmapName() == key.cmapName()",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "user-telnet", 300, 30);
            b.helper()->createAndAttachPolicer(onQueue(coppClass("user-ssh"), 40));
         }},
    {.name = "QueueAllocationForAnUnknownPolicyMap",
     .file = coppPolicers,
     .says = "pmapStatus",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->coppAllocateCpuQ(coppClass("user-telnet", {"Ethernet1"}, Qos::input_,
                                                   Qos::mapControlPlane_, "unknown-pmap"));
         }},
    {.name = "QueueAllocationForAnUnknownClassMap",
     .file = coppPolicers,
     .says = "cmapStatus",
     .provoke =
         [] {
            AgentBench b;
            b.sw().qosStatus()->pmapStatusIs(Qos::mapControlPlane_, coppPmap);
            b.helper()->coppAllocateCpuQ(coppClass("user-telnet"));
         }},
    {.name = "QueueAllocationWhoseQueueLeftTheMmu",
     .file = coppPolicers,
     .says = "cpuQ",
     .occurrence = 2,
     .provoke =
         [] {
            AgentBench b;
            Kiv::Ptr<Qos::PolicyMapHwStatus> const status =
                b.sw().mmuSm()->pmapHwStatus()->pmapHwStatus(
                    Qos::PolicyMapHwStatusKey(coppPmap, Qos::mapControlPlane_, Qos::input_));
            QueueTakenAway const away(status, b.sw().mmuSm()->cpuQColl(), 40);
            b.police("Ethernet1", "user-telnet", 300, 30);
         }},
    {.name = "QueueDeallocationOfAClassOfTwoMapTypes",
     .file = coppPolicers,
     .says = "pmapType == classData->key().cmapType()",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->coppDeallocateCpuQ(
                coppClass("user-telnet", {"Ethernet1"}, Qos::input_, Qos::mapQos_));
         }},
    {.name = "ClassPolicerOfAnOutputClass",
     .file = coppPolicers,
     .says = "NIMBAL_ASSERT_COPP_INPUT_KEY",
     .message = coppInputKeyText,
     .provoke =
         [] {
            AgentBench b;
            b.helper()->createAndAttachPolicer(
                coppClass("copp-system-bgp", {"Ethernet1"}, Qos::output_));
         }},
    {.name = "ClassPolicerOnTwoInterfaces",
     .file = coppPolicers,
     .says = "classData->intfIds() == 1",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->createAndAttachPolicer(
                coppClass("copp-system-bgp", {"Ethernet1", "Ethernet2"}));
         }},
    {.name = "ClassPolicerWithoutPoliceAction",
     .file = coppPolicers,
     .says = "policerData",
     .provoke =
         [] {
            AgentBench b;
            Kiv::Ptr<Oskel::QosClassData> const cls = coppClass("copp-system-bgp");
            cls->policerDataIs(nullptr);
            b.helper()->createAndAttachPolicer(cls);
         }},
    {.name = "ClassPolicerInKilobits",
     .file = coppPolicers,
     .says = "policerData->cirUnit() == Qos::rateUnitPps_",
     .provoke =
         [] {
            AgentBench b;
            Kiv::Ptr<Oskel::QosClassData> const cls = coppClass("copp-system-bgp");
            cls->policerData()->cirUnitIs(Qos::rateUnitKbps_);
            b.helper()->createAndAttachPolicer(cls);
         }},
    {.name = "ClassPolicerRemovalOfAnOutputClass",
     .file = coppPolicers,
     .says = "NIMBAL_ASSERT_COPP_INPUT_KEY",
     .occurrence = 2,
     .message = coppInputKeyText,
     .provoke =
         [] {
            AgentBench b;
            b.helper()->destroyPolicer(coppClass("copp-system-bgp", {"Ethernet1"}, Qos::output_));
         }},
    {.name = "ClassPolicerRemovalWhoseStaticQueueLeftTheMmu",
     .file = coppPolicers,
     .says = "cpuQ",
     .occurrence = 3,
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
            b.sw().mmuSm()->cpuQColl()->cpuQDel(1);
            b.unpolice("Ethernet1", "copp-system-bgp");
         }},
    // Port-queue policers
    {.name = "KernelKeyOfAQueueBeyondTheTable",
     .file = coppPortQueue,
     .says = "cpuQ",
     .provoke =
         [] {
            AgentBench b;
            b.sw().kernelCoppConfig()->coppInfoIs(Key(0, 5, 60), Oskel::CoppInfo(100, 6, 10, true));
         }},
    {.name = "KernelKeyOfTheDropQueue",
     .file = coppPortQueue,
     .says = "cpuQ->cpuQId() != cpuCosqDrop_",
     .provoke =
         [] {
            AgentBench b;
            b.sw().kernelCoppConfig()->coppInfoIs(Key(0, 5, 0), Oskel::CoppInfo(100, 6, 10, true));
         }},
    // Show tables
    {.name = "ShownCountersOfAnInterfaceWithoutPort",
     .file = coppShow,
     .says = "!!sp",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->coppIntfCounterDataIs(Orvik::IntfId("Ghost1"));
            showByName(b, "showCoppIntfCountersHw");
         }},
    {.name = "ShownCountersOfAQueueBeyondTheTable",
     .file = coppShow,
     .says = "cpuQ",
     .provoke =
         [] {
            AgentBench b;
            b.helper()
                ->coppIntfCounterDataIs(Orvik::IntfId("Ethernet1"))
                ->qCounterColIs(60, Nimbal::NimbalQosCoppQCounterData(5));
            showByName(b, "showCoppIntfCountersHw");
         }},
    // Verification
    {.name = "VerifyDifferenceInSimulation",
     .file = coppVerify,
     .says = "message.c_str()",
     .message = "Policer CIR (kbps) programmed 999 != configured 300",
     .reportedAt = "COPP_VERIFY_REPORT",
     .reportedOccurrence = 4,
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet2", "copp-system-bgp", 300, 30);
            U32 const policer =
                b.helper()->kernelDynamicCoppData(b.key("Ethernet2", 1))->policerId();
            Shim::bcm_policer_config_s config =
                b.sw().chip().policer(0, static_cast<int>(policer))->config;
            config.ckbits_sec_is(999);
            b.sw().chip().tamperPolicer(0, static_cast<int>(policer), config);
            ::setenv("SIMULATION_VMID", "1", 1);
            b.classes().verifyAll();
         }},
    {.name = "VerifyOfAClassWithoutAnyQueue",
     .file = coppVerify,
     .says = "cpuQId >= 0",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->verifyPolicer(onQueue(coppClass("user-unknown"), -1));
         }},
    {.name = "VerifyOfAClassOnAQueueBeyondTheTable",
     .file = coppVerify,
     .says = "cpuQ",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->verifyPolicer(onQueue(coppClass("user-telnet"), 50));
         }},
    {.name = "VerifyOfAClassOnAQueueNobodyHolds",
     .file = coppVerify,
     .says = "cpuQ->allocated()",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->verifyPolicer(onQueue(coppClass("user-telnet"), 41));
         }},
    {.name = "VerifyOfAClassOnAQueueOfAnotherPolicyMap",
     .file = coppVerify,
     .says = "cpuQ->pmapName() == mmuSm()->coppPMapName()",
     .provoke =
         [] {
            AgentBench b;
            takeQueue40(b, "another-pmap", "user-telnet", Qos::mapControlPlane_);
            b.helper()->verifyPolicer(onQueue(coppClass("user-telnet"), 40));
         }},
    {.name = "VerifyOfAClassOnAQueueOfAnotherClassMapType",
     .file = coppVerify,
     .says = "cpuQ->cmapType() == key.cmapType()",
     .provoke =
         [] {
            AgentBench b;
            takeQueue40(b, coppPmap, "user-telnet", Qos::mapQos_);
            b.helper()->verifyPolicer(onQueue(coppClass("user-telnet"), 40));
         }},
    {.name = "VerifyOfAClassOnTheQueueOfAnotherClass",
     .file = coppVerify,
     .says = "cpuQ->cmapName() == key.cmapName()",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "user-telnet", 300, 30);
            b.helper()->verifyPolicer(onQueue(coppClass("user-ssh"), 40));
         }},
    {.name = "VerifyOfAClassOnAnInterfaceWithoutClassPolicers",
     .file = coppVerify,
     .says = "pDataCol",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->verifyPolicer(coppClass("copp-system-bgp", {"Ethernet3"}));
         }},
    {.name = "VerifyOfAClassThatWasNeverPoliced",
     .file = coppVerify,
     .says = "pData",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "user-telnet", 300, 30);
            b.helper()->verifyPolicer(coppClass("copp-system-bgp"));
         }},
    {.name = "VerifyOfAClassRecordNotMadeByTheCoppCode",
     .file = coppVerify,
     .says = "pData->isDynamic()",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
            b.helper()
                ->coppIntfPolicerData(Orvik::IntfId("Ethernet1"))
                ->policerDataCol(b.classes().classKey("copp-system-bgp"))
                ->isDynamicIs(false);
            b.classes().verifyAll();
         }},
    {.name = "VerifyWithKernelCoppDisabled",
     .file = coppVerify,
     .says = "coppInfo.enabled()",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
            b.sw().kernelCoppConfig()->coppInfoIs(b.key("Ethernet1", 1),
                                                  Oskel::CoppInfo(300, 20, 30, false));
            b.classes().verifyAll();
         }},
    {.name = "VerifyWithAKernelRateOtherThanTheClassRate",
     .file = coppVerify,
     .says = "coppInfo.rateInPps() == policerData->cir()",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
            b.sw().kernelCoppConfig()->coppInfoIs(b.key("Ethernet1", 1),
                                                  Oskel::CoppInfo(301, 20, 30, true));
            b.classes().verifyAll();
         }},
    {.name = "VerifyWithAKernelBurstOtherThanTheClassBurst",
     .file = coppVerify,
     .says = "coppInfo.burstPkts() == policerData->bc()",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
            b.sw().kernelCoppConfig()->coppInfoIs(b.key("Ethernet1", 1),
                                                  Oskel::CoppInfo(300, 20, 31, true));
            b.classes().verifyAll();
         }},
    {.name = "VerifyOfAClassRateInKilobits",
     .file = coppVerify,
     .says = "policerData->cirUnit() == Qos::rateUnitPps_",
     .provoke =
         [] {
            AgentBench b;
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
            b.classes()
                .policed("Ethernet1", "copp-system-bgp")
                ->classData->policerData()
                ->cirUnitIs(Qos::rateUnitKbps_);
            b.classes().verifyAll();
         }},
    {.name = "VerifyWhenTheRedDropOfADefaultEntryCannotBeRead",
     .file = coppVerify,
     .says = "ret == ::Shim::sdk_->QV_BCM_E_NONE()",
     .provoke =
         [] {
            AgentBench b;
            b.sw().sdk().failNextCallIs("bcm_field_action_get", -7);
            b.helper()->verifyCoppPerPortDefaultPolicer();
         }},
    {.name = "VerifyOfADefaultEntryWhoseRedDropHasAParameter",
     .file = coppVerify,
     .says = "actionValue == 0",
     .provoke =
         [] {
            AgentBench b;
            for (auto const& [intf, hw] : b.helper()->portDefaultCoppPolicerHwDataCol()) {
               b.sw().sdk().bcm_field_action_add(0, static_cast<int>(hw.entryId()),
                                                 Shim::bcmFieldActionRpDrop, 5, 0);
            }
            b.helper()->verifyCoppPerPortDefaultPolicer();
         }},
    {.name = "VerifyOfAVxlanDefaultEntryAtAnotherRate",
     .file = coppVerify,
     .says = "vxlanData.policerRate() == iter->policerRate()",
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.vxlanIs(true);
            for (auto const& [intf, hw] : b.helper()->portDefaultCoppPolicerVxlanHwDataCol()) {
               b.helper()->portDefaultCoppPolicerVxlanHwDataIs(
                   intf, Nimbal::NimbalQosPolicerHwData(hw.policerRate() + 1, hw.policerBurst(),
                                                        hw.entryId(), hw.policerId()));
            }
            b.helper()->verifyCoppPerPortDefaultPolicer();
         }},
    {.name = "VerifyOfAVxlanDefaultEntryWithAnotherBurst",
     .file = coppVerify,
     .says = "vxlanData.policerBurst() == iter->policerBurst()",
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.vxlanIs(true);
            for (auto const& [intf, hw] : b.helper()->portDefaultCoppPolicerVxlanHwDataCol()) {
               b.helper()->portDefaultCoppPolicerVxlanHwDataIs(
                   intf, Nimbal::NimbalQosPolicerHwData(hw.policerRate(), hw.policerBurst() + 1,
                                                        hw.entryId(), hw.policerId()));
            }
            b.helper()->verifyCoppPerPortDefaultPolicer();
         }},
    {.name = "VerifyWhenTheRedDropOfAVxlanDefaultEntryCannotBeRead",
     .file = coppVerify,
     .says = "ret == ::Shim::sdk_->QV_BCM_E_NONE()",
     .occurrence = 2,
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.vxlanIs(true);
            // The VXLAN twin points at an entry the chip does not have.
            for (auto const& [intf, hw] : b.helper()->portDefaultCoppPolicerVxlanHwDataCol()) {
               b.helper()->portDefaultCoppPolicerVxlanHwDataIs(
                   intf, Nimbal::NimbalQosPolicerHwData(hw.policerRate(), hw.policerBurst(),
                                                        base + 4000, hw.policerId()));
            }
            b.helper()->verifyCoppPerPortDefaultPolicer();
         }},
    {.name = "VerifyOfAVxlanDefaultEntryWhoseRedDropHasAParameter",
     .file = coppVerify,
     .says = "actionValue == 0",
     .occurrence = 2,
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.vxlanIs(true);
            for (auto const& [intf, hw] : b.helper()->portDefaultCoppPolicerVxlanHwDataCol()) {
               b.sw().sdk().bcm_field_action_add(0, static_cast<int>(hw.entryId()),
                                                 Shim::bcmFieldActionRpDrop, 7, 0);
            }
            b.helper()->verifyCoppPerPortDefaultPolicer();
         }},
    // The VXLAN entry pool and VXLAN programming
    {.name = "VxlanPoolHoldingAFreeIndex",
     .file = coppVxlan,
     .says = "*iter",
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.helper()->coppVxlanDynEntryInUseIs(base + 256, false);
            b.vxlanIs(true);
         }},
    {.name = "VxlanEntryWhosePoolIndexWasAlreadyFree",
     .file = coppVxlan,
     .says = "coppVxlanDynEntryInUse( entry )",
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.vxlanIs(true);
            b.helper()->coppVxlanDynEntryInUseDel(
                b.helper()->kernelDynamicCoppVxlanDataCol().begin()->second->entry());
            b.vxlanIs(false);
         }},
    {.name = "VxlanRecordWithoutItsKernelRecord",
     .file = coppVxlan,
     .says = "kernelDynamicCoppDataHas( cDataIter.key() )",
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.helper()->kernelDynamicCoppVxlanDataIs(Key(0, 5, 45));
            b.vxlanIs(true);
         }},
    {.name = "VxlanDefaultsWithoutTheWorkaround",
     .file = coppVxlan,
     .says = "vxlanCoppSrcPortWorkAroundNeeded()",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->syncCoppVxlanDefaultPolicer(false);
         }},
    {.name = "VxlanSourcePortEntryWithoutTheWorkaround",
     .file = coppVxlan,
     .says = "vxlanCoppSrcPortWorkAroundNeeded()",
     .occurrence = 2,
     .provoke =
         [] {
            AgentBench b;
            b.helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9));
         }},
    {.name = "VxlanSourcePortEntryWithVxlanDisabled",
     .file = coppVxlan,
     .says = "scsd()->vxlanEnabled()",
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.helper()->createCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9));
         }},
    {.name = "VxlanSourcePortEntryOfAQueueBeyondTheTable",
     .file = coppVxlan,
     .says = "cpuQ",
     .provoke =
         [] {
            AgentBench b(vxlanSwitch());
            b.helper()->kernelDynamicCoppDataIs(Key(0, 5, 60));
            b.vxlanIs(true);
         }},
    {.name = "VxlanSourcePortEntryAtAnotherIndexThanItsPoolIndex",
     .file = coppVxlan,
     .says = "entry == vxlanEntry",
     .unreachable = "the bounded entry manager creates the entry at the index it is given or "
                    "none at all: its answer is the pool index or 0"},
    {.name = "VxlanSourcePortRemovalWithoutTheWorkaround",
     .file = coppVxlan,
     .says = "vxlanCoppSrcPortWorkAroundNeeded()",
     .occurrence = 3,
     .provoke =
         [] {
            AgentBench b;
            b.helper()->destoryCoppVxlanSrcPortPolicerByPortQueue(Key(0, 5, 9));
         }},
    {.name = "RecirculationOfAnInterfaceWithoutDefaultPolicer",
     .file = coppVxlan,
     .says = "!!coppData",
     .provoke =
         [] {
            AgentBench b;
            b.recircIs("Ethernet99", true);
         }},
    {.name = "RecirculationOfAnInterfaceWithoutPort",
     .file = coppVxlan,
     .says = "!!sp",
     .provoke =
         [] {
            AgentBench b;
            b.helper()->portDefaultCoppPolicerHwDataIs(
                Orvik::IntfId("Ghost1"), Nimbal::NimbalQosPolicerHwData(1000, 100, base + 9, 1));
            b.recircIs("Ghost1", true);
         }},
    // Lifecycle and primitives
    {.name = "HwInitWithoutTheIpv4CoppGroup",
     .file = protectionHelper,
     .says = "policyCoppIpEntryMgr()",
     .provoke =
         [] {
            AgentBench b;
            b.sw().tcamGroupManager()->entryMgrDel(34);
            b.helper()->hwInit();
         }},
    {.name = "HwInitWithoutTheIpv6CoppGroup",
     .file = protectionHelper,
     .says = "policyCoppIp6EntryMgr()",
     .provoke =
         [] {
            AgentBench b;
            b.sw().tcamGroupManager()->entryMgrDel(38);
            b.helper()->hwInit();
         }},
    {.name = "MeterSwapWhileInstallsReturnTheirErrors",
     .file = protectionHelper,
     .says = "!groupMgr->returnErrorOnInstall()",
     .provoke =
         [] {
            AgentBench b;
            b.sw().tcamGroupManager()->returnErrorOnInstallIs(true);
            b.police("Ethernet1", "copp-system-bgp", 600, 60);
         }},
    {.name = "MeterSwapOfADefaultPolicerWithItsPoolShrunkBelowUse",
     .file = protectionHelper,
     .says = "rc != ::Shim::sdk_->QV_BCM_E_RESOURCE() && \"Return value for installEntry is "
             "BCM_E_RESOURCE\"",
     .provoke =
         [] {
            AgentBench b;
            NimbalHost::SwitchResources none;
            none.efpDefaultMeters = 0;
            b.resourcesIs(none);
            b.police("Ethernet1", "copp-system-bgp", 600, 60);
         }},
    {.name = "ReleaseWhoseUnmeteredInstallRunsOutOfResources",
     .file = protectionHelper,
     .says = "rc != ::Shim::sdk_->QV_BCM_E_RESOURCE() && \"Return value for installEntry is "
             "BCM_E_RESOURCE\"",
     .occurrence = 2,
     .provoke =
         [] {
            AgentBench b;
            b.sw().sdk().failNextCallIs("bcm_field_entry_install", Shim::BCM_E_RESOURCE);
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
         }},
    {.name = "FailingSdkCall",
     .file = sdkCall,
     .says = "0",
     .provoke =
         [] {
            AgentBench b;
            b.sw().sdk().failNextCallIs("bcm_field_qualify_InPort", -4);
            b.police("Ethernet1", "copp-system-bgp", 300, 30);
         }},
    {.name = "InterfaceLookupStartingFromANonEmptyInterface",
     .file = sharedHelper,
     .says = "intfId.intfId() == Orvik::IntfId::emptyIntfId()",
     .unreachable = "the interface id it checks is constructed just before, and a "
                    "default-constructed interface id is the empty one"},
    // The TCAM-agent variant
    {.name = "TcamVariantBuiltWithTheToggleOff",
     .file = tcamHelper,
     .says = "toggleUseTcamAgentForPolicyQosEnabled()",
     .provoke =
         [] {
            Kiv::ActivityScope const activity;
            CoppTest::CoppPlatform platform;
            platform.tcamHelper()->setEntryPorts(
                coppPmapState(), SlotTest::classOf(SlotTest::coppKey), Qos::matchIpAccessGroup_,
                Oskel::AclKey("acl-bgp", 1), 3, U64(1));
         }},
    {.name = "TcamEntryPortsOfAClassWithoutRequest",
     .file = tcamHelper,
     .says = "classRequestTable",
     .provoke =
         [] {
            tcamSetEntryPorts(new NimbalTcam::RequestConfig(), 3, Oskel::AclKey("acl-bgp", 1),
                              SlotTest::qosKey);
         }},
    {.name = "TcamEntryPortsOfAnAclWithoutRequest",
     .file = tcamHelper,
     .says = "aclRequestTable",
     .provoke =
         [] {
            tcamSetEntryPorts(new NimbalTcam::RequestConfig(), 3, Oskel::AclKey("acl-other", 1));
         }},
    {.name = "TcamEntryPortsOfAUnitWithoutRequest",
     .file = tcamHelper,
     .says = "RequestConfig is NULL",
     .provoke = [] { tcamSetEntryPorts(new NimbalTcam::RequestConfig(), 4); }},
    {.name = "TcamEntryPortsOfARequestWithoutInterfaceGroup",
     .file = tcamHelper,
     .says = "requestConfig->intfGroup()",
     .provoke = [] { tcamSetEntryPorts(new NimbalTcam::RequestConfig(), 3); }},
};

// The assertion sites of the library's sources: what each says, and where.
struct SourceSite {
   std::string file;
   std::string says;
   int occurrence;
   SourceScan::Use use;
};

std::vector<SourceSite> sourceSites() {
   // The library's own asserting macros, besides the framework's.
   std::vector<std::string> macros = {"KIV_ASSERT", "KIV_ASSERT_MSG", "assertFail"};
   std::set<std::string> own;
   for (SourceScan::Define const& d : SourceScan::defines()) {
      for (char const* m : {"KIV_ASSERT", "KIV_ASSERT_MSG", "assertFail"}) {
         if (d.body.find(m) != std::string::npos) {
            own.insert(d.name);
         }
      }
   }
   macros.insert(macros.end(), own.begin(), own.end());
   std::vector<SourceSite> out;
   std::map<std::pair<std::string, std::string>, int> seen;
   for (SourceScan::Use const& use : SourceScan::uses(macros)) {
      std::string says;
      if (own.count(use.name)) {
         says = use.name;
      } else if (use.name == "KIV_ASSERT_MSG") {
         if (!SourceScan::literalText(use.args.at(1), says)) {
            says = SourceScan::stringized(use.args.at(1));
         }
      } else {
         says = SourceScan::stringized(use.args.at(0));
      }
      int const occurrence = ++seen[{use.file, says}];
      out.push_back({use.file, says, occurrence, use});
   }
   return out;
}

SourceScan::Use useOf(std::string const& file, std::string const& name, int occurrence) {
   int seen = 0;
   for (SourceScan::Use const& use : SourceScan::uses({name})) {
      if (use.file == file && ++seen == occurrence) {
         return use;
      }
   }
   throw std::logic_error("no use " + name + " in " + file);
}

std::string deathPattern(AssertionSite const& site) {
   for (SourceSite const& s : sourceSites()) {
      if (s.file == site.file && s.says == site.says && s.occurrence == site.occurrence) {
         SourceScan::Use const at =
             site.reportedAt ? useOf(site.file, site.reportedAt, site.reportedOccurrence) : s.use;
         return "(^|\n)" + regexQuoted(site.file) + ":" + SourceScan::linesPattern(at) +
                ": [^\n]*Assertion `" + regexQuoted(site.message ? site.message : site.says) +
                "' failed\\.\n";
      }
   }
   throw std::logic_error(std::string("no such assertion site: ") + site.name);
}

std::vector<AssertionSite> reachable() {
   std::vector<AssertionSite> out;
   for (AssertionSite const& site : assertionSites) {
      if (site.provoke) {
         out.push_back(site);
      }
   }
   return out;
}

class LibraryAssertion : public ::testing::TestWithParam<AssertionSite> {
  protected:
   void SetUp() override { ::unsetenv("SIMULATION_VMID"); }
   void TearDown() override { ::unsetenv("SIMULATION_VMID"); }
};

TEST_P(LibraryAssertion, EndsTheAgentWithItsTextAtItsSite) {
   AssertionSite const site = GetParam();
   EXPECT_DEATH(
       {
          site.provoke();
          std::fprintf(stderr, "nothing failed\n");
       },
       deathPattern(site));
}

INSTANTIATE_TEST_SUITE_P(EveryReachableSite, LibraryAssertion, ::testing::ValuesIn(reachable()),
                         [](::testing::TestParamInfo<AssertionSite> const& info) {
                            return std::string(info.param.name);
                         });

TEST(AssertionSites, TheTableListsEveryAssertionOfTheLibrary) {
   std::set<std::tuple<std::string, std::string, int>> table;
   std::set<std::string> names;
   for (AssertionSite const& site : assertionSites) {
      EXPECT_TRUE(table.emplace(site.file, site.says, site.occurrence).second) << site.name;
      EXPECT_TRUE(names.insert(site.name).second) << site.name;
      // Provoked, or unreachable for a stated reason; never both.
      EXPECT_NE(static_cast<bool>(site.provoke), site.unreachable != nullptr) << site.name;
   }
   std::set<std::tuple<std::string, std::string, int>> sources;
   for (SourceSite const& s : sourceSites()) {
      sources.emplace(s.file, s.says, s.occurrence);
   }
   EXPECT_EQ(sources, table);
   EXPECT_EQ(sourceSites().size(), std::size(assertionSites));
}

}  // namespace
