// First-in, first-out rings of a fixed size: CRingBuffer of bytes, CRingPtr of 64-bit values.
// Neither grows nor overwrites: what does not fit is refused.
//
// Threads: none of the operations takes a lock. Only Init and Read(CBaseBuffer*) allocate; a
// failed allocation raises std::bad_alloc.
#pragma once

#include <cstdint>

#include "qvx/base_buffer.h"
#include "qvx/types.h"

class QVX_API CRingBuffer {
 public:
  CRingBuffer();  // without a block
  // Copies share one block, which both would free: only for rings without a block.
  CRingBuffer(const CRingBuffer&) = default;
  CRingBuffer& operator=(const CRingBuffer&) = default;
  virtual ~CRingBuffer();

  // An empty ring of size bytes, whatever it held before; a size below 1 is no block. If there is
  // no memory, the ring is left without a block.
  void Init(int size);
  void Free();   // gives the block back
  void Reset();  // empties the ring

  // Appends all length bytes or none: 0 for stored (and for a null data or a length below 1,
  // which do nothing), 1 if length is above the ring's size, 2 if it is above the free room.
  int Add(const unsigned char* data, int length);

  // Moves up to length of the oldest bytes to out and returns how many; 0 for a null out or a
  // length below 1.
  int Read(unsigned char* out, int length);
  // Moves all bytes to out, in place of what it held, and returns how many; with none, or a
  // null out, out stays as it is.
  int Read(CBaseBuffer* out);

  int GetAvailSize();   // bytes waiting
  int GetBufferSize();  // bytes that fit

 private:
  unsigned char* mData = nullptr;
  int mBufferSize = 0;
  int mAvailSize = 0;
  int mReadPosition = 0;
};

// A ring of count slots holds at most count - 1 values.
class QVX_API CRingPtr {
 public:
  CRingPtr();  // without slots
  // Copies share the slots, which both would free: only for rings without slots.
  CRingPtr(const CRingPtr&) = default;
  CRingPtr& operator=(const CRingPtr&) = default;
  virtual ~CRingPtr();

  // An empty ring of count slots, whatever it held before; a count below 1 is no slots. If there
  // is no memory, the ring is left without slots.
  void Init(int count);
  void Free();   // gives the slots back
  void Reset();  // empties the ring and sets each slot to 0

  // 0 for stored, 1 for a ring without slots, 2 for a full one.
  int Add(std::uint64_t value);

  // The oldest value, which Get also removes; 0 from an empty ring.
  std::uint64_t Peek();
  std::uint64_t Get();

  int GetAvailSize();      // values waiting
  int GetCapabilityize();  // slots

 private:
  int After(int index) const { return index + 1 < mCapability ? index + 1 : 0; }

  std::uint64_t* mSlots = nullptr;
  int mCapability = 0;
  int mReadIndex = 0;   // the slot last read
  int mWriteIndex = 0;  // the slot last written
};
