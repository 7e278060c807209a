#include "platform/bitmap.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace qvx::test {
namespace {

TEST(BitmapBlocks, ServeSeveralThreads) {
  std::vector<std::jthread> threads;
  for (unsigned char thread = 0; thread < 4; ++thread) {
    threads.emplace_back([thread] {
      const std::vector<unsigned char> info(40, thread);
      std::vector<HBITMAP> bitmaps(50);
      for (HBITMAP& each : bitmaps) each = platform::MakeBitmap(info, 16);
      for (HBITMAP each : bitmaps) {
        platform::BitmapBlocks blocks;
        ASSERT_TRUE(platform::LookIntoBitmap(each, blocks));
        EXPECT_EQ(blocks.info[39], thread);
        EXPECT_EQ(blocks.pixels.size(), 16u);
        EXPECT_TRUE(platform::FreeBitmap(each));
      }
    });
  }
}

}  // namespace
}  // namespace qvx::test
