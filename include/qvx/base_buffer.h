// A block of bytes that either owns its memory or is bound to memory of somebody else, with
// the size of the block kept apart from the number of bytes that hold data.
//
// Sizes are exact: growth allocates what the new content needs and nothing more, and a block
// never shrinks short of Delete. An operation that runs out of memory throws std::bad_alloc
// and leaves the object as it was; a total above 4 GiB - 1 counts as that. One object serves
// one thread at a time.
#pragma once

#include <qvx/types.h>

class QVX_API CBaseBuffer {
 public:
  CBaseBuffer();
  // With bind 0 a copy of the source's available bytes; otherwise bound to the source's block,
  // both sizes being its available size. A null source gives an empty buffer; a bound one must
  // outlive this object's use of the block.
  CBaseBuffer(CBaseBuffer* source, int bind);
  // Copies the four fields as they stand: two owners of one block are an error of the caller.
  // For bound and empty buffers only; SetBuffer makes a real copy.
  CBaseBuffer(const CBaseBuffer& source) = default;
  CBaseBuffer& operator=(const CBaseBuffer& source) = default;
  virtual ~CBaseBuffer();

  // Makes sure of a capacity; never shrinks, and leaves the available size as it is. A bound
  // buffer that has to grow moves its available bytes to a block of its own.
  void SetBufferSize(unsigned int size);
  // Refers to size bytes at data from now on; both sizes become size. The caller keeps the
  // block, and keeps it alive. Writes within its size go straight into it.
  void BindBuffer(const void* data, unsigned int size);
  void BindBuffer(CBaseBuffer* source);
  // Frees an own block, forgets a bound one; the object is empty then.
  void Delete();

  // Replaces the content; null data has no effect. Source and block may overlap.
  void SetBuffer(const void* data, unsigned int size);
  void SetBuffer(CBaseBuffer* source);
  // Appends; null data or a size of 0 has no effect. If data is the address just behind the
  // available bytes and the block has room, only the available size grows.
  void AppendBuffer(const void* data, unsigned int size);
  void AppendBuffer(CBaseBuffer* source);
  // Append 1, 2 or 4 bytes in the host's byte order.
  void AppendByte(unsigned char value);
  void AppendUint16(unsigned short value);
  void AppendUint32(unsigned int value);

  // Fills the whole capacity; the available size stays.
  void MemSetBuffer(unsigned char value);
  // Fills up to count bytes from offset, as far as the capacity goes.
  void MemSetBuffer(unsigned char value, unsigned int offset, unsigned int count);

  // The block, or null. Valid until the next operation that needs more room, Delete or bind.
  const unsigned char* GetBuffer() const { return mData; }
  unsigned int GetAvailSize() const { return mAvailSize; }
  unsigned int GetBufSize() const { return mBufferSize; }
  // 1 if the block belongs to someone else, else 0.
  int IsBindBuffer() const { return mIsBind; }
  // Declares how many bytes hold data, cut to the capacity, and returns that number.
  unsigned int SetAvailSize(unsigned int size);
  // Bytes between the available size and the capacity.
  unsigned int GetLeftSize() const {
    return mAvailSize < mBufferSize ? mBufferSize - mAvailSize : 0;
  }

 private:
  void Install(unsigned char* block, unsigned int bufferSize, unsigned int availSize);

  unsigned char* mData;
  unsigned int mBufferSize;
  unsigned int mAvailSize;
  int mIsBind;
};
