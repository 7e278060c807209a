#include "platform/random.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>

#include "support/fork_child.h"

namespace qvx::platform {
namespace {

// The kinds come with the odds 1 : 3 : 3; the limits are ten standard deviations away.
TEST(RandomName, KindsOfCharacters) {
  const std::string name = RandomName(70000);
  const auto count = [&name](char first, char last) {
    return std::count_if(name.begin(), name.end(),
                         [=](char each) { return each >= first && each <= last; });
  };
  EXPECT_NEAR(static_cast<double>(count('0', '9')), 10000, 930);
  EXPECT_NEAR(static_cast<double>(count('a', 'z')), 30000, 1320);
  EXPECT_NEAR(static_cast<double>(count('A', 'Z')), 30000, 1320);
  EXPECT_EQ(count('0', '9') + count('a', 'z') + count('A', 'Z'), 70000);
  EXPECT_EQ(std::set<char>(name.begin(), name.end()).size(), 62u);
  EXPECT_EQ(RandomName(0), "");
}

TEST(RandomName, ForkedProcessesDrawDifferentNames) {
  RandomName(3);  // whatever is kept between calls stands before the fork
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_TRUE(test::HoldsInChild([&] { return write(ends[1], RandomName(10).data(), 10) == 10; }));
  std::string of_child(10, '\0');
  EXPECT_EQ(read(ends[0], of_child.data(), 10), 10);
  EXPECT_NE(of_child, RandomName(10));
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace qvx::platform
