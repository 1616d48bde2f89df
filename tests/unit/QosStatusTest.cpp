#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Qos/Action.h"
#include "Qos/PolicyMapHwStatus.h"
#include "Qos/Status.h"

namespace {

// Records the attributes that changed on an entity.
template <class T>
struct Recorder : Kiv::Notifiee<T> {
   std::vector<std::string> seen;
   void onAttribute(Kiv::AttrId attr) override { seen.push_back(std::string(attr)); }
   void onAttribute(Kiv::AttrId attr, Kiv::KeyRef const&) override {
      seen.push_back(std::string(attr));
   }
};

TEST(QosStatus, PolicyMapIsFoundByMapTypeAndName) {
   Kiv::Ptr<Qos::Status> status(new Qos::Status());
   EXPECT_FALSE(status->pmapStatus(Qos::mapControlPlane_, "copp-system-policy"));
   Kiv::Ptr<Qos::PolicyMapStatus> pmap =
       status->pmapStatusIs(Qos::mapControlPlane_, "copp-system-policy");
   EXPECT_EQ(pmap->name(), "copp-system-policy");
   EXPECT_EQ(pmap->mapType(), Qos::mapControlPlane_);
   EXPECT_EQ(status->pmapStatus(Qos::mapControlPlane_, "copp-system-policy"), pmap);
   EXPECT_EQ(status->pmapStatusIs(Qos::mapControlPlane_, "copp-system-policy"), pmap);
   EXPECT_FALSE(status->pmapStatus(Qos::mapQos_, "copp-system-policy"));
   EXPECT_FALSE(status->pmapStatus(Qos::mapControlPlane_, "other"));
   EXPECT_EQ(status->pmapStatus(), 1u);
}

TEST(QosStatus, ClassIsFoundInItsPolicyMapByMapTypeAndName) {
   Kiv::Ptr<Qos::Status> status(new Qos::Status());
   Kiv::Ptr<Qos::PolicyMapStatus> pmap = status->pmapStatusIs(Qos::mapControlPlane_, "copp");
   Kiv::Ptr<Qos::ClassMapStatus> cmap = pmap->cmapStatusIs(Qos::mapControlPlane_, "user-a");
   EXPECT_EQ(cmap->name(), "user-a");
   EXPECT_EQ(cmap->mapType(), Qos::mapControlPlane_);
   EXPECT_EQ(pmap->cmapStatus(Qos::mapControlPlane_, "user-a"), cmap);
   EXPECT_FALSE(pmap->cmapStatus(Qos::mapQos_, "user-a"));
   EXPECT_EQ(status->cmapStatus(Qos::mapControlPlane_, "copp", Qos::mapControlPlane_, "user-a"),
             cmap);
   EXPECT_FALSE(
       status->cmapStatus(Qos::mapControlPlane_, "other", Qos::mapControlPlane_, "user-a"));
   EXPECT_FALSE(status->cmapStatus(Qos::mapControlPlane_, "copp", Qos::mapControlPlane_, "user-b"));
}

TEST(QosStatus, RateActionsAreTheFirstTwoActionTypes) {
   EXPECT_EQ(static_cast<U32>(Qos::actionSetShape_), 0u);
   EXPECT_EQ(static_cast<U32>(Qos::actionSetBandwidth_), 1u);
   EXPECT_EQ(static_cast<U32>(Qos::actionRateKindPercent_), 4u);
   EXPECT_EQ(Qos::actionRateNotConfigured, 10000002u);
}

TEST(QosStatus, ActionsAreKeyedByTypeAndCarryRateUnitAndKind) {
   Kiv::Ptr<Qos::Status> status(new Qos::Status());
   Kiv::Ptr<Qos::ClassMapStatus> cmap = status->pmapStatusIs(Qos::mapControlPlane_, "copp")
                                            ->cmapStatusIs(Qos::mapControlPlane_, "user-a");
   EXPECT_FALSE(cmap->action(Qos::actionSetShape_));
   cmap->actionIs(Qos::actionSetShape_, Qos::ActionRate(5000, Qos::rateUnitPps_));
   cmap->actionIs(Qos::actionSetBandwidth_, Qos::ActionRate(20, Qos::rateUnitInvalid_),
                  Qos::actionRateKindPercent_);
   Kiv::Ptr<Qos::Action> shape = cmap->action(Qos::actionSetShape_);
   ASSERT_TRUE(shape);
   EXPECT_EQ(shape->type(), Qos::actionSetShape_);
   EXPECT_EQ(shape->rate().value(), 5000u);
   EXPECT_EQ(shape->rate().unit(), Qos::rateUnitPps_);
   EXPECT_EQ(shape->rateKind(), Qos::actionRateKindAbsolute_);
   Kiv::Ptr<Qos::Action> bw = cmap->action(Qos::actionSetBandwidth_);
   ASSERT_TRUE(bw);
   EXPECT_EQ(bw->rate().value(), 20u);
   EXPECT_EQ(bw->rateKind(), Qos::actionRateKindPercent_);
   EXPECT_EQ(cmap->action(), 2u);

   // Setting the action again updates it in place.
   EXPECT_EQ(cmap->actionIs(Qos::actionSetShape_, Qos::ActionRate(300, Qos::rateUnitKbps_)), shape);
   EXPECT_EQ(shape->rate(), Qos::ActionRate(300, Qos::rateUnitKbps_));
   cmap->actionDel(Qos::actionSetShape_);
   EXPECT_FALSE(cmap->action(Qos::actionSetShape_));
}

TEST(QosStatus, ActionChangesAreAnnouncedOnlyWhenTheValueChanges) {
   Kiv::Ptr<Qos::Action> a(new Qos::Action(Qos::actionSetShape_));
   a->hasNotificationActiveIs(true);
   Recorder<Qos::Action> obs;
   obs.notifierIs(a);
   a->rateIs(Qos::ActionRate(10, Qos::rateUnitPps_));
   a->rateIs(Qos::ActionRate(10, Qos::rateUnitPps_));
   a->rateKindIs(Qos::actionRateKindAbsolute_);
   a->rateKindIs(Qos::actionRateKindPercent_);
   EXPECT_EQ(obs.seen, (std::vector<std::string>{"rate", "rateKind"}));
}

TEST(QosStatus, NewPolicyMapsAndClassesAreAnnounced) {
   Kiv::Ptr<Qos::Status> status(new Qos::Status());
   Recorder<Qos::Status> obs;
   obs.notifierIs(status);
   Kiv::Ptr<Qos::PolicyMapStatus> pmap = status->pmapStatusIs(Qos::mapControlPlane_, "copp");
   status->pmapStatusIs(Qos::mapControlPlane_, "copp");
   Recorder<Qos::PolicyMapStatus> pobs;
   pobs.notifierIs(pmap);
   pmap->cmapStatusIs(Qos::mapControlPlane_, "user-a");
   EXPECT_EQ(obs.seen, (std::vector<std::string>{"pmapStatus"}));
   EXPECT_EQ(pobs.seen, (std::vector<std::string>{"cmapStatus"}));
}

TEST(QosPolicyMapHwStatus, KeysCompareByNameTypeAndDirection) {
   Qos::PolicyMapHwStatusKey a("copp", Qos::mapControlPlane_, Qos::input_);
   Qos::PolicyMapHwStatusKey b("copp", Qos::mapControlPlane_, Qos::output_);
   Qos::PolicyMapHwStatusKey c("copp", Qos::mapQos_, Qos::input_);
   EXPECT_EQ(a, Qos::PolicyMapHwStatusKey("copp", Qos::mapControlPlane_, Qos::input_));
   EXPECT_FALSE(a == b);
   EXPECT_FALSE(a == c);
   EXPECT_TRUE(a < b);
   EXPECT_TRUE(a < c);
   EXPECT_EQ(a.pmapName(), "copp");
   EXPECT_EQ(b.direction(), Qos::output_);
   EXPECT_EQ(c.pmapType(), Qos::mapQos_);
}

TEST(QosPolicyMapHwStatus, ClassMapsAreAddedAndRemovedByName) {
   Qos::PolicyMapHwStatusKey key("copp-system-policy", Qos::mapControlPlane_, Qos::input_);
   Kiv::Ptr<Qos::PolicyMapHwStatus> hw(new Qos::PolicyMapHwStatus(key));
   hw->hasNotificationActiveIs(true);
   Recorder<Qos::PolicyMapHwStatus> obs;
   obs.notifierIs(hw);
   EXPECT_FALSE(hw->cmapHas("user-a"));
   hw->cmapIs("user-a");
   hw->cmapIs("user-a");
   hw->cmapIs("user-b");
   EXPECT_TRUE(hw->cmapHas("user-a"));
   EXPECT_TRUE(hw->cmap("user-b"));
   EXPECT_EQ(hw->cmap(), 2u);
   hw->cmapDel("user-a");
   hw->cmapDel("user-a");
   EXPECT_FALSE(hw->cmapHas("user-a"));
   EXPECT_FALSE(hw->cmap("user-a"));
   EXPECT_EQ(hw->cmap(), 1u);
   EXPECT_EQ(obs.seen, (std::vector<std::string>{"cmap", "cmap", "cmap"}));
   EXPECT_EQ(hw->key(), key);
}

TEST(QosPolicyMapHwStatus, SliceStatusIsFoundByMapTypeThenKey) {
   Kiv::Ptr<Qos::PolicyMapSliceHwStatus> slice(new Qos::PolicyMapSliceHwStatus());
   Qos::PolicyMapHwStatusKey key("copp-system-policy", Qos::mapControlPlane_, Qos::input_);
   EXPECT_FALSE(slice->pmapTypeSliceHwStatus(Qos::mapControlPlane_));
   EXPECT_FALSE(slice->pmapHwStatus(key));

   Kiv::Ptr<Qos::PolicyMapHwStatus> hw = slice->pmapHwStatusIs(key);
   Kiv::Ptr<Qos::PolicyMapTypeSliceHwStatus> typeStatus =
       slice->pmapTypeSliceHwStatus(Qos::mapControlPlane_);
   ASSERT_TRUE(typeStatus);
   EXPECT_EQ(typeStatus->mapType(), Qos::mapControlPlane_);
   EXPECT_EQ(typeStatus->pmapSliceHwStatus(key), hw);
   EXPECT_EQ(slice->pmapHwStatus(key), hw);
   EXPECT_EQ(slice->pmapHwStatusIs(key), hw);

   // The type level may exist without the policy map.
   Qos::PolicyMapHwStatusKey other("other", Qos::mapControlPlane_, Qos::input_);
   EXPECT_FALSE(slice->pmapHwStatus(other));
   EXPECT_FALSE(slice->pmapTypeSliceHwStatus(Qos::mapQos_));
}

}  // namespace
