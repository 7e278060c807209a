#include "platform/seam.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/fault_plan.h"

namespace {

using qvx::platform::Operation;
using qvx::platform::SeamFails;
using qvx::platform::SeamFailsOrShortens;
using qvx::test::FaultPlan;

TEST(Seam, OnlyTheChosenCallsFailOrAreShort) {
  std::size_t size = 100;
  {
    FaultPlan plan;
    plan.Fail(Operation::kSocket, 2, EMFILE, 2).Shorten(Operation::kSend, 1, 7);
    EXPECT_FALSE(SeamFails(Operation::kSocket));
    EXPECT_TRUE(SeamFails(Operation::kSocket));
    EXPECT_EQ(errno, EMFILE);
    EXPECT_TRUE(SeamFails(Operation::kSocket));
    EXPECT_FALSE(SeamFails(Operation::kSocket));
    EXPECT_FALSE(SeamFailsOrShortens(Operation::kSend, size));
    EXPECT_EQ(size, 7u);
    EXPECT_EQ(plan.Calls(Operation::kSocket), 4);
  }
  size = 100;
  EXPECT_FALSE(SeamFailsOrShortens(Operation::kSend, size));
  EXPECT_EQ(size, 100u);
}

}  // namespace
