#include "qvx/ring_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <vector>

#include "support/failing_new.h"

namespace qvx::test {
namespace {

using Bytes = std::vector<unsigned char>;

int Add(CRingBuffer& ring, const Bytes& bytes) {
  return ring.Add(bytes.data(), static_cast<int>(bytes.size()));
}

TEST(RingBuffer, RefusesWhatDoesNotFit) {
  CRingBuffer ring;
  const Bytes bytes(9, 7);
  EXPECT_EQ(Add(ring, bytes), 1);
  ring.Init(8);
  EXPECT_EQ(Add(ring, bytes), 1);
  EXPECT_EQ(ring.Add(bytes.data(), 8), 0);
  EXPECT_EQ(ring.Add(bytes.data(), 1), 2);
  EXPECT_EQ(ring.Add(nullptr, 1), 0);
  EXPECT_EQ(ring.Add(bytes.data(), -1), 0);
  EXPECT_EQ(ring.GetAvailSize(), 8);
  EXPECT_EQ(ring.Read(nullptr, 3), 0);
  unsigned char out[8];
  EXPECT_EQ(ring.Read(out, -1), 0);
  ring.Reset();
  EXPECT_EQ(ring.GetAvailSize(), 0);
  EXPECT_EQ(ring.Read(out, 8), 0);
  EXPECT_EQ(ring.GetBufferSize(), 8);
  ring.Free();
  EXPECT_EQ(ring.GetBufferSize(), 0);
  ring.Init(-1);
  EXPECT_EQ(ring.Add(bytes.data(), 1), 1);
}

// Random writes and reads of both kinds against a queue, in rings of every small size.
TEST(RingBuffer, GivesBytesBackInOrder) {
  std::mt19937 random(24);
  for (int size = 1; size < 40; ++size) {
    CRingBuffer ring;
    ring.Init(size);
    std::deque<unsigned char> queue;
    for (int turn = 0; turn < 300; ++turn) {
      Bytes bytes(random() % 20);
      for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
      const std::size_t room = static_cast<std::size_t>(size) - queue.size();
      const int result = Add(ring, bytes);
      ASSERT_EQ(result, bytes.size() > static_cast<std::size_t>(size) ? 1
                        : bytes.size() > room                         ? 2
                                                                      : 0);
      if (result == 0) queue.insert(queue.end(), bytes.begin(), bytes.end());
      Bytes out(random() % 20, 0xEE);
      std::size_t count = std::min(out.size(), queue.size());
      if (turn % 10 == 0) {
        CBaseBuffer all;
        all.SetBuffer("old content that is longer than the ring is large", 49);
        count = queue.size();
        ASSERT_EQ(ring.Read(&all), static_cast<int>(count));
        out.assign(all.GetBuffer(), all.GetBuffer() + count);
        ASSERT_EQ(all.GetAvailSize(), count > 0 ? count : 49u);
      } else {
        ASSERT_EQ(ring.Read(out.data(), static_cast<int>(out.size())), static_cast<int>(count));
      }
      ASSERT_TRUE(
          std::equal(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(count), queue.begin()));
      queue.erase(queue.begin(), queue.begin() + static_cast<std::ptrdiff_t>(count));
      ASSERT_EQ(ring.GetAvailSize(), static_cast<int>(queue.size()));
    }
  }
}

TEST(RingPtr, HoldsOneLessThanItHasSlots) {
  CRingPtr ring;
  EXPECT_EQ(ring.Add(1), 1);
  EXPECT_EQ(ring.Get(), 0u);
  EXPECT_EQ(ring.GetAvailSize(), 0);
  ring.Init(1);
  EXPECT_EQ(ring.Add(1), 2);
  ring.Init(4);
  std::uint64_t written = 0;
  std::uint64_t read = 0;
  for (int turn = 0; turn < 20; ++turn) {
    while (ring.Add(written + 1) == 0) ++written;
    EXPECT_EQ(ring.GetAvailSize(), 3);
    EXPECT_EQ(ring.Peek(), read + 1);
    for (int i = 0; i <= turn % 3; ++i) EXPECT_EQ(ring.Get(), ++read);
  }
  EXPECT_EQ(written, 3 + read - 1 - 19 % 3);
  ring.Reset();
  EXPECT_EQ(ring.Peek(), 0u);
  EXPECT_EQ(ring.GetAvailSize(), 0);
  EXPECT_EQ(ring.GetCapabilityize(), 4);
}

TEST(RingBuffer, IsLeftWithoutABlockWhenMemoryIsOut) {
  CRingBuffer ring;
  CRingPtr values;
  ring.Init(8);
  values.Init(8);
  {
    const FailingAllocations failing(1, 1000);
    EXPECT_THROW(ring.Init(100), std::bad_alloc);
    EXPECT_THROW(values.Init(100), std::bad_alloc);
  }
  EXPECT_EQ(ring.GetBufferSize(), 0);
  EXPECT_EQ(values.Add(1), 1);
}

}  // namespace
}  // namespace qvx::test
