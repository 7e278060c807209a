#include "platform/pour_pipe.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>

#include "support/fault_plan.h"
#include "support/packet_bytes.h"
#include "support/socket_pair.h"
#include "support/temp_folder.h"

namespace qvx::platform {
namespace {

using test::FaultPlan;

constexpr std::size_t kSize = PourPipe::kWorthwhile + 1000;

class PourPipes : public ::testing::Test {
 protected:
  PourPipes() { EXPECT_TRUE(file_.OpenNative(folder_.Path("file"), OpenMode::WriteNew())); }

  void Bring() { pair_.Bring(bytes_); }
  std::size_t Pour(std::uint64_t offset) {
    return pipe_.Pour(pair_.ours, kSize, file_, offset, &written_);
  }
  std::string Content() const { return test::ReadWhole(folder_.Path("file")); }

  test::TempFolder folder_;
  test::SocketPair pair_;
  File file_;
  PourPipe pipe_;
  const std::string bytes_ = test::Pattern(kSize);
  bool written_ = false;
};

TEST_F(PourPipes, BytesComeToTheirPlaceAndNoneIsWaitedFor) {
  SetNonBlocking(pair_.ours, false);
  EXPECT_EQ(Pour(0), 0U);
  pair_.Bring("few");
  EXPECT_EQ(Pour(0), 0U);
  EXPECT_EQ(PendingBytes(pair_.ours), 3U);
  EXPECT_EQ(pipe_.Pour(pair_.ours, 3, file_, 5, &written_), 3U);
  EXPECT_TRUE(written_);
  Bring();
  FaultPlan plan;
  plan.Shorten(Operation::kFileWrite, 1, 100);
  EXPECT_EQ(Pour(8), kSize);
  EXPECT_TRUE(written_);
  EXPECT_TRUE(Content() == std::string(5, '\0') + "few" + bytes_);
  pair_.peer.Close();
  while (PollSocket(pair_.ours, kPollRead, test::kLongWait) == 0) {
  }
  EXPECT_EQ(Pour(0), 0U);
}

TEST_F(PourPipes, AFileThatCannotPourGetsAllThroughMemoryAndAFullDiskIsTold) {
  const struct {
    int error;
    bool written;
  } cases[] = {{ENOSPC, false}, {EINVAL, true}};
  for (const auto& each : cases) {
    Bring();
    FaultPlan plan;
    plan.Fail(Operation::kFileWrite, 1, each.error);
    EXPECT_EQ(Pour(0), kSize);
    EXPECT_EQ(written_, each.written);
    EXPECT_EQ(plan.Calls(Operation::kFileWrite) > 1, each.written);
  }
  EXPECT_TRUE(Content() == bytes_);  // the failed one left the pipe empty
}

TEST_F(PourPipes, WhatCannotPourLeavesTheBytesToAReceive) {
  Bring();
  {
    FaultPlan plan;
    plan.Fail(Operation::kReceive, 1, EINVAL);
    EXPECT_EQ(Pour(0), 0U);
    EXPECT_EQ(Pour(0), 0U);  // not tried again
    EXPECT_EQ(plan.Calls(Operation::kReceive), 1);
  }
  EXPECT_EQ(PendingBytes(pair_.ours), kSize);

  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  PourPipe without_descriptors;
  EXPECT_EQ(without_descriptors.Pour(pair_.ours, kSize, file_, 0, &written_), 0U);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(PendingBytes(pair_.ours), kSize);
}

}  // namespace
}  // namespace qvx::platform
