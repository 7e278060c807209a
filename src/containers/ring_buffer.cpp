#include "qvx/ring_buffer.h"

#include <algorithm>
#include <cstring>

namespace {

std::size_t Size(int count) {
  return static_cast<std::size_t>(count);
}

}  // namespace

CRingBuffer::CRingBuffer() = default;

CRingBuffer::~CRingBuffer() {
  Free();
}

void CRingBuffer::Init(int size) {
  Free();
  if (size < 1) return;
  mData = new unsigned char[Size(size)];
  mBufferSize = size;
}

void CRingBuffer::Free() {
  delete[] mData;
  mData = nullptr;
  mBufferSize = 0;
  Reset();
}

void CRingBuffer::Reset() {
  mAvailSize = 0;
  mReadPosition = 0;
}

int CRingBuffer::Add(const unsigned char* data, int length) {
  if (data == nullptr || length < 1) return 0;
  if (length > mBufferSize) return 1;
  if (length > mBufferSize - mAvailSize) return 2;
  const int to_end = mBufferSize - mReadPosition;
  const int position = mAvailSize < to_end ? mReadPosition + mAvailSize : mAvailSize - to_end;
  const int first = std::min(length, mBufferSize - position);
  std::memcpy(mData + position, data, Size(first));
  if (first < length) std::memcpy(mData, data + first, Size(length - first));
  mAvailSize += length;
  return 0;
}

int CRingBuffer::Read(unsigned char* out, int length) {
  length = std::min(length, mAvailSize);
  if (out == nullptr || length < 1) return 0;
  const int first = std::min(length, mBufferSize - mReadPosition);
  std::memcpy(out, mData + mReadPosition, Size(first));
  if (first < length) std::memcpy(out + first, mData, Size(length - first));
  mReadPosition = first < length                          ? length - first
                  : mReadPosition + length == mBufferSize ? 0
                                                          : mReadPosition + length;
  mAvailSize -= length;
  return length;
}

int CRingBuffer::Read(CBaseBuffer* out) {
  if (out == nullptr || mAvailSize < 1) return 0;
  const auto size = static_cast<unsigned int>(mAvailSize);
  out->SetBufferSize(size);
  out->SetAvailSize(size);
  return Read(const_cast<unsigned char*>(out->GetBuffer()), mAvailSize);
}

int CRingBuffer::GetAvailSize() {
  return mAvailSize;
}

int CRingBuffer::GetBufferSize() {
  return mBufferSize;
}

CRingPtr::CRingPtr() = default;

CRingPtr::~CRingPtr() {
  Free();
}

void CRingPtr::Init(int count) {
  Free();
  if (count < 1) return;
  mSlots = new std::uint64_t[Size(count)];
  mCapability = count;
}

void CRingPtr::Free() {
  delete[] mSlots;
  mSlots = nullptr;
  mCapability = 0;
  Reset();
}

void CRingPtr::Reset() {
  mReadIndex = 0;
  mWriteIndex = 0;
  std::fill_n(mSlots, mCapability, 0);
}

int CRingPtr::Add(std::uint64_t value) {
  if (mCapability < 1) return 1;
  const int next = After(mWriteIndex);
  if (next == mReadIndex) return 2;
  mWriteIndex = next;
  mSlots[next] = value;
  return 0;
}

std::uint64_t CRingPtr::Peek() {
  return mReadIndex == mWriteIndex ? 0 : mSlots[After(mReadIndex)];
}

std::uint64_t CRingPtr::Get() {
  if (mReadIndex == mWriteIndex) return 0;
  mReadIndex = After(mReadIndex);
  return mSlots[mReadIndex];
}

int CRingPtr::GetAvailSize() {
  const int ahead = mWriteIndex - mReadIndex;
  return ahead < 0 ? ahead + mCapability : ahead;
}

int CRingPtr::GetCapabilityize() {
  return mCapability;
}
