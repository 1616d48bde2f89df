#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/agent/KernelCoppReactor.h"
#include "unit/CoppHelperFixture.h"

namespace {

using Key = Oskel::ModIdPortQueueKey;
using NimbalHost::KernelCoppReactor;

std::string text(Key const& k) {
   std::ostringstream os;
   os << k;
   return os.str();
}

// A helper that records the per-port-queue calls instead of programming hardware; keys in
// `full` report full resources.
class RecordingHelper : public Nimbal::QosAclHelperV1 {
  public:
   explicit RecordingHelper(CoppTest::CoppPlatform const& p)
       : Nimbal::QosAclHelper(p.qosStatus, p.qosAclSliceHwStatus, p.mainAclConfig, p.mmuSm, p.scsd,
                              p.tcamGroupManager, p.pktDrv, p.aclHwStatus, p.vlanTopoSliceStatus,
                              p.scMiscConfig, p.routingStatus, p.vxlanSliceConfig, p.unit,
                              p.qosAclHwStatus),
         Nimbal::QosAclHelperV1(p.qosStatus, p.qosAclSliceHwStatus, p.mainAclConfig, p.mmuSm,
                                p.scsd, p.tcamGroupManager, p.pktDrv, p.aclHwStatus,
                                p.vlanTopoSliceStatus, p.scMiscConfig, p.routingStatus,
                                p.vxlanSliceConfig, p.unit, p.qosAclHwStatus, p.kernelCoppConfig) {}

   bool createCoppPolicerByPortQueue(Key const& key) override {
      calls.push_back("create " + text(key));
      return !full.count(key);
   }
   void destroyCoppPolicerByPortQueue(Key const& key) override {
      calls.push_back("destroy " + text(key));
   }

   std::vector<std::string> calls;
   std::set<Key> full;
};

class KernelCoppReactorTest : public ::testing::Test {
  protected:
   void publish(Key const& k, U32 rate) {
      platform.kernelCoppConfig->coppInfoIs(k, Oskel::CoppInfo(rate, rate * 2 / 3, rate, true));
   }
   std::vector<std::string> calls() {
      std::vector<std::string> out = helper->calls;
      helper->calls.clear();
      return out;
   }

   CoppTest::CoppPlatform platform;
   Kiv::Ptr<RecordingHelper> helper{new RecordingHelper(platform)};
   KernelCoppReactor reactor{helper.ptr()};
   Key const a{0, 1, 5};
   Key const b{0, 2, 1};
   Key const c{1, 1, 7};
};

TEST_F(KernelCoppReactorTest, JoiningProgramsWhatTheConfigurationHoldsInKeyOrder) {
   publish(c, 100);
   publish(a, 100);
   publish(b, 100);
   reactor.notifierIs(platform.kernelCoppConfig);
   EXPECT_EQ(calls(),
             (std::vector<std::string>{"create (0,1,5)", "create (0,2,1)", "create (1,1,7)"}));
   EXPECT_EQ(reactor.programmed(), (NimbalHost::KernelCoppReactor::KeySet{a, b, c}));
   EXPECT_TRUE(reactor.failed().empty());
}

TEST_F(KernelCoppReactorTest, AppearingKeyIsCreated) {
   reactor.notifierIs(platform.kernelCoppConfig);
   publish(a, 100);
   EXPECT_EQ(calls(), std::vector<std::string>{"create (0,1,5)"});
   EXPECT_EQ(reactor.programmed().count(a), 1u);
}

TEST_F(KernelCoppReactorTest, ChangedProgrammedKeyIsDestroyedThenCreated) {
   reactor.notifierIs(platform.kernelCoppConfig);
   publish(a, 100);
   calls();
   publish(a, 300);
   EXPECT_EQ(calls(), (std::vector<std::string>{"destroy (0,1,5)", "create (0,1,5)"}));
}

TEST_F(KernelCoppReactorTest, UnchangedValueProgramsNothing) {
   reactor.notifierIs(platform.kernelCoppConfig);
   publish(a, 100);
   calls();
   publish(a, 100);
   EXPECT_TRUE(calls().empty());
}

TEST_F(KernelCoppReactorTest, RemovedKeyIsDestroyed) {
   reactor.notifierIs(platform.kernelCoppConfig);
   publish(a, 100);
   calls();
   platform.kernelCoppConfig->coppInfoDel(a);
   EXPECT_EQ(calls(), std::vector<std::string>{"destroy (0,1,5)"});
   EXPECT_TRUE(reactor.programmed().empty());
}

TEST_F(KernelCoppReactorTest, FailedKeyWaitsForTheNextRetry) {
   reactor.notifierIs(platform.kernelCoppConfig);
   helper->full.insert(a);
   publish(a, 100);
   EXPECT_EQ(calls(), std::vector<std::string>{"create (0,1,5)"});
   EXPECT_EQ(reactor.failed(), std::set<Key>{a});
   EXPECT_TRUE(reactor.programmed().empty());

   reactor.retry();
   EXPECT_EQ(calls(), std::vector<std::string>{"create (0,1,5)"});
   EXPECT_EQ(reactor.failed(), std::set<Key>{a});

   helper->full.clear();
   reactor.retry();
   EXPECT_EQ(calls(), std::vector<std::string>{"create (0,1,5)"});
   EXPECT_TRUE(reactor.failed().empty());
   EXPECT_EQ(reactor.programmed(), NimbalHost::KernelCoppReactor::KeySet{a});

   reactor.retry();
   EXPECT_TRUE(calls().empty());
}

TEST_F(KernelCoppReactorTest, ChangedFailedKeyIsCreatedWithoutDestroy) {
   reactor.notifierIs(platform.kernelCoppConfig);
   helper->full.insert(a);
   publish(a, 100);
   calls();
   helper->full.clear();
   publish(a, 200);
   EXPECT_EQ(calls(), std::vector<std::string>{"create (0,1,5)"});
   EXPECT_EQ(reactor.programmed(), NimbalHost::KernelCoppReactor::KeySet{a});
}

TEST_F(KernelCoppReactorTest, RemovedFailedKeyIsNeitherDestroyedNorRetried) {
   reactor.notifierIs(platform.kernelCoppConfig);
   helper->full.insert(a);
   publish(a, 100);
   calls();
   platform.kernelCoppConfig->coppInfoDel(a);
   reactor.retry();
   EXPECT_TRUE(calls().empty());
   EXPECT_TRUE(reactor.failed().empty());
}

TEST_F(KernelCoppReactorTest, RetryGoesInKeyOrder) {
   reactor.notifierIs(platform.kernelCoppConfig);
   helper->full = {a, b, c};
   publish(c, 1);
   publish(b, 1);
   publish(a, 1);
   calls();
   reactor.retry();
   EXPECT_EQ(calls(),
             (std::vector<std::string>{"create (0,1,5)", "create (0,2,1)", "create (1,1,7)"}));
}

}  // namespace
