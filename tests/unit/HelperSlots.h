#pragma once

// The slots of the agent's helper that QosAclHelperV1 fills, each as a call the agent makes,
// and a way to see which implementation answered: run the call through the agent's view of a
// helper and through a qualified call of QosAclHelperV1's implementation on a twin built from
// its own platform, and compare everything that came of it.

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "Kiv/Activity.h"
#include "Oskel/VerifyData.h"
#include "Shim/Sdk.h"
#include "unit/CoppHelperFixture.h"

namespace SlotTest {

inline Oskel::QosClassDataKey const coppKey("copp-system-policy", Qos::mapControlPlane_,
                                            Qos::input_, "copp-system-bgp", Qos::mapControlPlane_);
inline Oskel::QosClassDataKey const qosKey("pmap-qos", Qos::mapQos_, Qos::input_, "cmap-qos",
                                           Qos::mapQos_);

inline Kiv::Ptr<Oskel::QosClassData> classOf(Oskel::QosClassDataKey const& key,
                                             char const* intf = "Ethernet9") {
   Kiv::Ptr<Oskel::QosClassData> cls(new Oskel::QosClassData(key));
   cls->intfIdIs(intf);
   return cls;
}

// Everything a call left behind that a test can see.
struct Outcome {
   std::string result;
   std::vector<std::string> baseCalls;
   std::vector<std::string> traces;
   std::vector<std::string> sdkCalls;
   bool operator==(Outcome const&) const = default;
};

inline void PrintTo(Outcome const& o, std::ostream* os) {
   auto list = [os](char const* name, std::vector<std::string> const& v) {
      *os << " " << name << "=[";
      for (auto const& s : v) {
         *os << s << ";";
      }
      *os << "]";
   };
   *os << "result=" << o.result;
   list("baseCalls", o.baseCalls);
   list("traces", o.traces);
   list("sdk", o.sdkCalls);
}

struct Slot {
   std::string name;
   // State both twins need before the call.
   std::function<void(CoppTest::CoppPlatform&, Nimbal::QosAclHelperV1&)> setUp;
   // The call: through the agent's QosAclHelper view, or QosAclHelperV1's own implementation.
   std::function<std::string(Nimbal::QosAclHelperV1&, bool v1Implementation)> call;
};

inline Nimbal::QosAclHelper& agentView(Nimbal::QosAclHelperV1& h) {
   return h;
}

inline std::string text(bool b) {
   return b ? "true" : "false";
}

inline std::string text(Oskel::QosClassCounterData const& c) {
   return std::to_string(c.pktHits()) + "/" + std::to_string(c.drop());
}

inline void noSetUp(CoppTest::CoppPlatform&, Nimbal::QosAclHelperV1&) {}

// A fresh chip, the slot's state, then the call with the activity lock held and every trace
// handle of the library captured.
inline Outcome run(Slot const& slot, CoppTest::CoppPlatform& platform,
                   Nimbal::QosAclHelperV1& helper, bool v1Implementation) {
   Shim::sdk_->reset();
   slot.setUp(platform, helper);
   helper.baseCallsDelAll();
   Shim::sdk_->journalDelAll();
   Outcome out;
   {
      Kiv::ActivityScope lock;
      CoppTest::TraceCapture traces({"NimbalQosSm", "NimbalQosTcamAclSm", "ApiNimbal"});
      out.result = slot.call(helper, v1Implementation);
      for (auto const& l : traces.lines()) {
         out.traces.push_back(l.handle + ":" + std::to_string(l.level) + " " + l.text);
      }
   }
   out.baseCalls = helper.baseCalls();
   out.sdkCalls = Shim::sdk_->journalTexts();
   return out;
}

// The slots whose implementation is QosAclHelperV1's in both helpers, with inputs that take
// each down a path that needs no further agent state.
inline std::vector<Slot> v1Slots() {
   using Nimbal::QosAclHelperV1;
   std::vector<Slot> slots;
   slots.push_back({"precreateAcl", noSetUp, [](QosAclHelperV1& h, bool v1) {
                       Kiv::Ptr<Oskel::QosPolicyMapState> pmap(
                           new Oskel::QosPolicyMapState("copp-system-policy"));
                       auto cls = classOf(coppKey);
                       Oskel::AclKey const acl("acl-bgp", 1);
                       if (v1) {
                          h.QosAclHelperV1::precreateAcl(pmap, cls, Qos::matchIpv6AccessGroup_, acl,
                                                         1);
                       } else {
                          agentView(h).precreateAcl(pmap, cls, Qos::matchIpv6AccessGroup_, acl, 1);
                       }
                       return std::string();
                    }});
   slots.push_back({"coppAllocateCpuQ",
                    [](CoppTest::CoppPlatform& p, QosAclHelperV1&) {
                       p.qosStatus->pmapStatusIs(Qos::mapControlPlane_, coppKey.pmapName())
                           ->cmapStatusIs(Qos::mapControlPlane_, coppKey.cmapName());
                    },
                    [](QosAclHelperV1& h, bool v1) {
                       auto cls = classOf(coppKey);
                       return std::to_string(v1 ? h.QosAclHelperV1::coppAllocateCpuQ(cls)
                                                : agentView(h).coppAllocateCpuQ(cls));
                    }});
   slots.push_back({"coppDeallocateCpuQ", noSetUp, [](QosAclHelperV1& h, bool v1) {
                       auto cls = classOf(coppKey);
                       if (v1) {
                          h.QosAclHelperV1::coppDeallocateCpuQ(cls);
                       } else {
                          agentView(h).coppDeallocateCpuQ(cls);
                       }
                       return std::string();
                    }});
   slots.push_back({"checkUserCoppEntryExists",
                    [](CoppTest::CoppPlatform&, QosAclHelperV1& h) {
                       h.userCoppDataIs(Oskel::ModIdPortQueueKey(0, 2, 6));
                    },
                    [](QosAclHelperV1& h, bool v1) {
                       Oskel::ModIdPortQueueKey const key(0, 2, 6);
                       return text(v1 ? h.QosAclHelperV1::checkUserCoppEntryExists(key)
                                      : agentView(h).checkUserCoppEntryExists(key));
                    }});
   slots.push_back({"checkKernelCoppEntryExists",
                    [](CoppTest::CoppPlatform&, QosAclHelperV1& h) {
                       h.kernelDynamicCoppDataIs(Oskel::ModIdPortQueueKey(0, 2, 6));
                    },
                    [](QosAclHelperV1& h, bool v1) {
                       Oskel::ModIdPortQueueKey const key(0, 2, 6);
                       return text(v1 ? h.QosAclHelperV1::checkKernelCoppEntryExists(key)
                                      : agentView(h).checkKernelCoppEntryExists(key));
                    }});
   slots.push_back({"createDefaultCoppRates", noSetUp, [](QosAclHelperV1& h, bool v1) {
                       if (v1) {
                          h.QosAclHelperV1::createDefaultCoppRates();
                       } else {
                          agentView(h).createDefaultCoppRates();
                       }
                       return std::string();
                    }});
   slots.push_back({"createAndAttachCoppPolicer", noSetUp, [](QosAclHelperV1& h, bool v1) {
                       auto cls = classOf(coppKey);
                       return text(v1 ? h.QosAclHelperV1::createAndAttachCoppPolicer(cls)
                                      : agentView(h).createAndAttachCoppPolicer(cls));
                    }});
   slots.push_back({"destroyCoppPolicer", noSetUp, [](QosAclHelperV1& h, bool v1) {
                       auto cls = classOf(coppKey);
                       if (v1) {
                          h.QosAclHelperV1::destroyCoppPolicer(cls);
                       } else {
                          agentView(h).destroyCoppPolicer(cls);
                       }
                       return std::string();
                    }});
   slots.push_back(
       {"createCoppPolicerByPortQueue",
        [](CoppTest::CoppPlatform&, QosAclHelperV1& h) { h.createCoppPolicerAlwaysFalseIs(true); },
        [](QosAclHelperV1& h, bool v1) {
           Oskel::ModIdPortQueueKey const key(7, 2, 6);
           return text(v1 ? h.QosAclHelperV1::createCoppPolicerByPortQueue(key)
                          : agentView(h).createCoppPolicerByPortQueue(key));
        }});
   slots.push_back({"destroyCoppPolicerByPortQueue", noSetUp, [](QosAclHelperV1& h, bool v1) {
                       Oskel::ModIdPortQueueKey const key(7, 2, 6);
                       if (v1) {
                          h.QosAclHelperV1::destroyCoppPolicerByPortQueue(key);
                       } else {
                          agentView(h).destroyCoppPolicerByPortQueue(key);
                       }
                       return std::string();
                    }});
   slots.push_back({"verifyPolicer", noSetUp, [](QosAclHelperV1& h, bool v1) {
                       auto cls = classOf(coppKey);
                       if (v1) {
                          h.QosAclHelperV1::verifyPolicer(cls);
                       } else {
                          agentView(h).verifyPolicer(cls);
                       }
                       return std::string();
                    }});
   slots.push_back({"compressAllGroups",
                    [](CoppTest::CoppPlatform& p, QosAclHelperV1& h) {
                       p.scsd->nimbalModIdToUnitIs(0, 0);
                       h.policyCoppIpEntryMgrIs(new Nimbal::NimbalUnboundedTcamEntryManager(34));
                       h.policyCoppIp6EntryMgrIs(new Nimbal::NimbalUnboundedTcamEntryManager(38));
                    },
                    [](QosAclHelperV1& h, bool v1) {
                       if (v1) {
                          h.QosAclHelperV1::compressAllGroups();
                       } else {
                          agentView(h).compressAllGroups();
                       }
                       return std::string();
                    }});
   slots.push_back(
       {"verifyRulePortsForUnit",
        [](CoppTest::CoppPlatform& p, QosAclHelperV1&) {
           p.scsd->verifyDataIs(new Oskel::VerifyData());
           Shim::sdk_->chip().portBitmapIs(0, Shim::pbmpOf({1, 2}));
        },
        [](QosAclHelperV1& h, bool v1) {
           Kiv::Ptr<Oskel::QosPolicyMapState> pmap(
               new Oskel::QosPolicyMapState("copp-system-policy"));
           auto cls = classOf(coppKey);
           Oskel::AclKey const acl("acl-bgp", 0);
           if (v1) {
              h.QosAclHelperV1::verifyRulePortsForUnit(pmap, cls, Qos::matchIpAccessGroup_, acl, 0,
                                                       0x99, 10, 0, 34, Acl::actionPermit_);
           } else {
              agentView(h).verifyRulePortsForUnit(pmap, cls, Qos::matchIpAccessGroup_, acl, 0, 0x99,
                                                  10, 0, 34, Acl::actionPermit_);
           }
           auto const& cli = h.scsd()->verifyData()->cliVerifyOutput();
           return cli.empty() ? std::string() : cli[0].message;
        }});
   return slots;
}

}  // namespace SlotTest
