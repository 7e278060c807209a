#include <qvx/base_buffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>

#include "support/failing_new.h"

namespace {

std::string Content(const CBaseBuffer& buffer) {
  return std::string(reinterpret_cast<const char*>(buffer.GetBuffer()), buffer.GetAvailSize());
}

TEST(BaseBuffer, KeepsCapacityExact) {
  CBaseBuffer buffer;
  EXPECT_EQ(buffer.GetLeftSize(), 0u);
  buffer.AppendByte('a');
  EXPECT_EQ(buffer.GetBufSize(), 1u);
  buffer.AppendByte('b');
  buffer.AppendUint16(0x6463);
  buffer.AppendUint32(0x68676665);
  EXPECT_EQ(Content(buffer), "abcdefgh");
  EXPECT_EQ(buffer.GetBufSize(), 8u);
  buffer.SetBuffer("xyz", 3);
  buffer.SetBuffer(nullptr, 10);
  EXPECT_EQ(Content(buffer), "xyz");
  EXPECT_EQ(buffer.GetLeftSize(), 5u);
  buffer.SetBuffer("w", 0);
  EXPECT_EQ(buffer.GetAvailSize(), 0u);
  EXPECT_EQ(buffer.GetBufSize(), 8u);
  buffer.SetBufferSize(100);
  buffer.SetBufferSize(50);
  EXPECT_EQ(buffer.GetBufSize(), 100u);
  EXPECT_EQ(buffer.SetAvailSize(1000), 100u);
}

TEST(BaseBuffer, TakesItsOwnBytesAndItsTail) {
  CBaseBuffer buffer;
  buffer.SetBuffer("0123456789", 10);
  buffer.SetBuffer(buffer.GetBuffer() + 2, 6);
  EXPECT_EQ(Content(buffer), "234567");
  std::memcpy(const_cast<unsigned char*>(buffer.GetBuffer()) + 6, "AB", 2);
  buffer.AppendBuffer(buffer.GetBuffer() + 6, 2);
  EXPECT_EQ(Content(buffer), "234567AB");
  EXPECT_EQ(buffer.GetBufSize(), 10u);
  buffer.AppendBuffer(&buffer);
  EXPECT_EQ(Content(buffer), "234567AB234567AB");
  buffer.SetBuffer(&buffer);
  buffer.SetBuffer(buffer.GetBuffer() + 1, 15);
  EXPECT_EQ(Content(buffer), "34567AB234567AB");
}

TEST(BaseBuffer, BindsAndBecomesItsOwn) {
  std::string block(16, '.');
  CBaseBuffer buffer;
  buffer.SetBuffer("owned", 5);
  buffer.BindBuffer(block.data(), 16);
  EXPECT_EQ(buffer.IsBindBuffer(), 1);
  buffer.SetBuffer("12345678", 8);
  EXPECT_EQ(buffer.GetBufSize(), 16u);
  buffer.MemSetBuffer('m', 14, 99);
  buffer.MemSetBuffer('m', 16, 1);
  EXPECT_EQ(block, "12345678......mm");
  CBaseBuffer copy(&buffer, 0);
  CBaseBuffer second(&buffer, 1);
  EXPECT_EQ(copy.IsBindBuffer(), 0);
  EXPECT_EQ(second.GetBufSize(), 8u);
  EXPECT_EQ(second.GetBuffer(), buffer.GetBuffer());
  second.AppendByte('9');
  EXPECT_EQ(Content(second), "123456789");
  EXPECT_EQ(second.IsBindBuffer(), 0);
  buffer.SetBuffer("larger than the block", 21);
  EXPECT_EQ(buffer.IsBindBuffer(), 0);
  buffer.BindBuffer(block.data(), 16);
  buffer.MemSetBuffer('x');
  buffer.Delete();
  EXPECT_EQ(buffer.GetBuffer(), nullptr);
  EXPECT_EQ(buffer.IsBindBuffer(), 0);
  EXPECT_EQ(block, std::string(16, 'x'));
  EXPECT_EQ(Content(copy), "12345678");
}

TEST(BaseBuffer, StaysAsItWasWithoutMemory) {
  CBaseBuffer buffer;
  buffer.SetBuffer("1234", 4);
  {
    const qvx::test::FailingAllocations failing(1, 100);
    EXPECT_THROW(buffer.AppendByte('5'), std::bad_alloc);
    EXPECT_THROW(buffer.SetBuffer("12345", 5), std::bad_alloc);
    EXPECT_THROW(buffer.SetBufferSize(5), std::bad_alloc);
    EXPECT_THROW(buffer.AppendBuffer("x", 0xFFFFFFFFu), std::bad_alloc);
  }
  EXPECT_EQ(buffer.GetBufSize(), 4u);
  EXPECT_EQ(Content(buffer), "1234");
}

}  // namespace
