#pragma once

// A test on a switch made by the builder, with the activity lock held as the agent's event loop
// holds it, so that its release around the library's SDK calls shows in the SDK journal.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Kiv/Activity.h"
#include "host/agent/SwitchBuilder.h"

namespace SwitchTest {

class SwitchFixture : public ::testing::Test {
  protected:
   // The switch built before each test; override for another one.
   virtual NimbalHost::SwitchConfig switchConfig() const { return NimbalHost::SwitchConfig(); }

   SwitchFixture() {
      // A forked child would inherit a lock it cannot release: death tests re-run the test in a
      // fresh process instead. The flag is restored after each test.
      GTEST_FLAG_SET(death_test_style, "threadsafe");
   }

   void SetUp() override { build(switchConfig()); }
   void TearDown() override { sw_.reset(); }

   // Replaces the switch with a new one built from `config`.
   void build(NimbalHost::SwitchConfig const& config) {
      sw_.reset();
      sw_ = NimbalHost::buildSwitch(config);
   }

   NimbalHost::Switch& sw() const { return *sw_; }
   Kiv::Ptr<Nimbal::QosAclHelperV1> helper() const { return sw_->helper(); }
   Shim::Sdk& sdk() const { return sw_->sdk(); }
   Shim::SimChip& chip() const { return sw_->chip(); }
   NimbalTypes::NimbalPort port(std::string const& intf) const {
      return sw_->port(Orvik::IntfId(intf));
   }

  private:
   // Taken first and released last: the switch is built and torn down under the lock.
   Kiv::ActivityScope activity_;
   std::unique_ptr<NimbalHost::Switch> sw_;
};

}  // namespace SwitchTest
