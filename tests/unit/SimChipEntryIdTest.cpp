#include <gtest/gtest.h>

#include <vector>

#include "Shim/Sdk.h"

namespace {

using namespace Shim;

class SimChipEntryIdTest : public ::testing::Test {
  protected:
   void SetUp() override {
      sdk_->reset();
      ASSERT_EQ(sdk_->bcm_field_group_create_id(0, 7), BCM_E_NONE);
   }
   bcm_field_entry_t create() {
      bcm_field_entry_t e = 0;
      EXPECT_EQ(sdk_->bcm_field_entry_create(0, 7, &e), BCM_E_NONE);
      return e;
   }
   static constexpr bcm_field_entry_t first = SimChip::firstAutoEntryId;
};

TEST_F(SimChipEntryIdTest, AutomaticIdsAreTheLowestFreeOnesAfterDestroys) {
   std::vector<bcm_field_entry_t> ids;
   for (int i = 0; i < 5; ++i) {
      ids.push_back(create());
   }
   EXPECT_EQ(ids,
             (std::vector<bcm_field_entry_t>{first, first + 1, first + 2, first + 3, first + 4}));
   ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, first + 3), BCM_E_NONE);
   ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, first + 1), BCM_E_NONE);
   EXPECT_EQ(create(), first + 1);
   EXPECT_EQ(create(), first + 3);
   EXPECT_EQ(create(), first + 5);
   ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, first), BCM_E_NONE);
   EXPECT_EQ(create(), first);
}

TEST_F(SimChipEntryIdTest, AutomaticIdsStepOverIdsTakenByNumber) {
   EXPECT_EQ(create(), first);
   ASSERT_EQ(sdk_->bcm_field_entry_create_id(0, 7, first + 1), BCM_E_NONE);
   ASSERT_EQ(sdk_->bcm_field_entry_create_id(0, 7, first + 2), BCM_E_NONE);
   EXPECT_EQ(create(), first + 3);
   // Ids given by number below the automatic range do not move it.
   ASSERT_EQ(sdk_->bcm_field_entry_create_id(0, 7, 100), BCM_E_NONE);
   ASSERT_EQ(sdk_->bcm_field_entry_destroy(0, 100), BCM_E_NONE);
   EXPECT_EQ(create(), first + 4);
}

TEST_F(SimChipEntryIdTest, ResetStartsTheIdsAgain) {
   create();
   create();
   sdk_->reset();
   ASSERT_EQ(sdk_->bcm_field_group_create_id(0, 7), BCM_E_NONE);
   EXPECT_EQ(create(), first);
}

}  // namespace
