#include "platform/random.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>

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
  constexpr int kNames = 2000;
  RandomName(3);  // whatever is kept between calls stands before the fork
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::string all;
    for (int i = 0; i < kNames; ++i) all += RandomName(10);
    const bool written = write(ends[1], all.data(), all.size()) == static_cast<ssize_t>(all.size());
    _exit(written ? 0 : 1);
  }
  close(ends[1]);
  std::set<std::string> names;
  for (int i = 0; i < kNames; ++i) names.insert(RandomName(10));
  std::string all;
  char buffer[4096];
  for (ssize_t got; (got = read(ends[0], buffer, sizeof buffer)) > 0;) {
    all.append(buffer, static_cast<std::size_t>(got));
  }
  close(ends[0]);
  int status = 1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  for (std::size_t i = 0; i < all.size(); i += 10) names.insert(all.substr(i, 10));
  EXPECT_EQ(names.size(), 2u * kNames);
}

}  // namespace
}  // namespace qvx::platform
