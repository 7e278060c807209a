#include "qvx/ring_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "support/failing_new.h"

namespace qvx::test {
namespace {

int Add(CRingBuffer& ring, const std::string& bytes) {
  return ring.Add(reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<int>(bytes.size()));
}

TEST(RingBuffer, RefusesWhatDoesNotFit) {
  CRingBuffer ring;
  EXPECT_EQ(Add(ring, "1"), 1);
  ring.Init(8);
  EXPECT_EQ(Add(ring, "12345678"), 0);
  unsigned char block[8];
  EXPECT_EQ(ring.Add(nullptr, 1), 0);
  EXPECT_EQ(ring.Add(block, -1), 0);
  EXPECT_EQ(ring.Read(nullptr, 3), 0);
  EXPECT_EQ(ring.Read(block, -1), 0);
  EXPECT_EQ(ring.GetAvailSize(), 8);
  ring.Reset();
  EXPECT_EQ(ring.GetAvailSize(), 0);
  EXPECT_EQ(ring.Read(block, 8), 0);
  EXPECT_EQ(ring.GetBufferSize(), 8);
  ring.Free();
  EXPECT_EQ(ring.GetBufferSize(), 0);
  ring.Init(-1);
  EXPECT_EQ(Add(ring, "1"), 1);
}

// Reads up to count bytes, or all of them into a buffer that held more.
std::string Read(CRingBuffer& ring, std::size_t count) {
  std::string out(count, '\0');
  const int taken =
      ring.Read(reinterpret_cast<unsigned char*>(out.data()), static_cast<int>(count));
  return out.substr(0, static_cast<std::size_t>(taken));
}

std::string ReadAll(CRingBuffer& ring) {
  CBaseBuffer all;
  all.SetBuffer("old content that is longer than the ring is large", 49);
  const int taken = ring.Read(&all);
  EXPECT_EQ(all.GetAvailSize(), taken > 0 ? static_cast<unsigned>(taken) : 49u);
  return std::string(reinterpret_cast<const char*>(all.GetBuffer()),
                     static_cast<std::size_t>(taken));
}

// Random writes and reads of both kinds against a queue, in rings of every small size.
TEST(RingBuffer, GivesBytesBackInOrder) {
  std::mt19937 random(24);
  for (std::size_t size = 1; size < 40; ++size) {
    CRingBuffer ring;
    ring.Init(static_cast<int>(size));
    std::string queue;
    for (int turn = 0; turn < 300; ++turn) {
      std::string bytes(random() % 20, '\0');
      for (char& byte : bytes) byte = static_cast<char>(random());
      const int expected = bytes.size() > size ? 1 : bytes.size() > size - queue.size() ? 2 : 0;
      ASSERT_EQ(Add(ring, bytes), expected);
      if (expected == 0) queue += bytes;
      const std::size_t count = turn % 10 == 0 ? queue.size() : random() % 20;
      ASSERT_EQ(turn % 10 == 0 ? ReadAll(ring) : Read(ring, count), queue.substr(0, count));
      queue.erase(0, count);
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
    EXPECT_EQ(written, read + 3);
    EXPECT_EQ(ring.GetAvailSize(), 3);
    EXPECT_EQ(ring.Peek(), read + 1);
    for (int i = 0; i <= turn % 3; ++i) EXPECT_EQ(ring.Get(), ++read);
  }
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
