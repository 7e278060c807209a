#include <qvx/base_buffer.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace {

unsigned char* Allocate(unsigned int size) {
  return new unsigned char[size];
}

unsigned int CheckedSum(unsigned int left, unsigned int right) {
  if (right > std::numeric_limits<unsigned int>::max() - left) throw std::bad_alloc();
  return left + right;
}

void Move(unsigned char* to, const void* from, unsigned int size) {
  if (size != 0 && to != from) std::memmove(to, from, size);
}

}  // namespace

CBaseBuffer::CBaseBuffer() : mData(nullptr), mBufferSize(0), mAvailSize(0), mIsBind(0) {}

CBaseBuffer::CBaseBuffer(CBaseBuffer* source, int bind) : CBaseBuffer() {
  if (bind != 0) {
    BindBuffer(source);
  } else {
    SetBuffer(source);
  }
}

CBaseBuffer::~CBaseBuffer() {
  Delete();
}

// An owned block goes; the new one is owned.
void CBaseBuffer::Install(unsigned char* block, unsigned int bufferSize, unsigned int availSize) {
  Delete();
  mData = block;
  mBufferSize = bufferSize;
  mAvailSize = availSize;
}

void CBaseBuffer::SetBufferSize(unsigned int size) {
  if (size <= mBufferSize) return;
  unsigned char* block = Allocate(size);
  const unsigned int available = mAvailSize;
  Move(block, mData, available);
  Install(block, size, available);
}

void CBaseBuffer::BindBuffer(const void* data, unsigned int size) {
  Delete();
  mData = static_cast<unsigned char*>(const_cast<void*>(data));
  mBufferSize = size;
  mAvailSize = size;
  mIsBind = 1;
}

void CBaseBuffer::BindBuffer(CBaseBuffer* source) {
  if (source == nullptr || source == this) return;
  BindBuffer(source->mData, source->mAvailSize);
}

void CBaseBuffer::Delete() {
  if (mIsBind == 0) delete[] mData;
  mData = nullptr;
  mBufferSize = 0;
  mAvailSize = 0;
  mIsBind = 0;
}

void CBaseBuffer::SetBuffer(const void* data, unsigned int size) {
  if (data == nullptr) return;
  if (size <= mBufferSize) {
    Move(mData, data, size);
    mAvailSize = size;
    return;
  }
  unsigned char* block = Allocate(size);
  Move(block, data, size);
  Install(block, size, size);
}

void CBaseBuffer::SetBuffer(CBaseBuffer* source) {
  if (source != nullptr) SetBuffer(source->mData, source->mAvailSize);
}

void CBaseBuffer::AppendBuffer(const void* data, unsigned int size) {
  if (data == nullptr || size == 0) return;
  const unsigned int total = CheckedSum(mAvailSize, size);
  if (total <= mBufferSize) {
    Move(mData + mAvailSize, data, size);
    mAvailSize = total;
    return;
  }
  unsigned char* block = Allocate(total);
  Move(block, mData, mAvailSize);
  Move(block + mAvailSize, data, size);
  Install(block, total, total);
}

void CBaseBuffer::AppendBuffer(CBaseBuffer* source) {
  if (source != nullptr) AppendBuffer(source->mData, source->mAvailSize);
}

void CBaseBuffer::AppendByte(unsigned char value) {
  AppendBuffer(&value, sizeof(value));
}

void CBaseBuffer::AppendUint16(unsigned short value) {
  AppendBuffer(&value, sizeof(value));
}

void CBaseBuffer::AppendUint32(unsigned int value) {
  AppendBuffer(&value, sizeof(value));
}

void CBaseBuffer::MemSetBuffer(unsigned char value) {
  MemSetBuffer(value, 0, mBufferSize);
}

void CBaseBuffer::MemSetBuffer(unsigned char value, unsigned int offset, unsigned int count) {
  if (offset >= mBufferSize) return;
  std::memset(mData + offset, value, std::min(count, mBufferSize - offset));
}

unsigned int CBaseBuffer::SetAvailSize(unsigned int size) {
  mAvailSize = std::min(size, mBufferSize);
  return mAvailSize;
}
