// A serial port with timed reads and writes, and with reads and writes that go to a completion
// port. See serial_names.h for names and settings texts, completion_port.h for the other end of
// posted reads and writes.
//
// All operations but CancelRead, IsOpened and IsSerialExist hold the object's lock for their whole
// length, so a write waits for a read of another thread to end. Callers who need both at once post
// them. An open port has one thread inside the library, which keeps up to 128 KiB of what arrives
// until it is read; it is joined when the port closes.
//
// A device that is gone (unplugged, hung up) closes the port; ReOpen brings it back once
// IsSerialExist says so. In a forked child an open port is like one that is gone.
#pragma once

#include <qvx/base_string.h>
#include <qvx/completion_port.h>
#include <qvx/sync.h>
#include <qvx/types.h>

#include <atomic>
#include <cstdint>

class QVX_API CSerialUtil {
 public:
  // Closed, with 256000 baud, 8 data bits, no parity, one stop bit.
  CSerialUtil();
  // Copy settings and handles as they stand, so that both use one open port; not for open ports.
  CSerialUtil(const CSerialUtil& source);
  CSerialUtil& operator=(const CSerialUtil& source);
  // CloseSerial.
  virtual ~CSerialUtil();

  // Opens COM<portNumber>, or the port of that name ("COM3"), for this object alone, and closes
  // what was open before. Any baud rate; byteSize 5 to 8; parity 0 none, 1 odd, 2 even, 3 mark,
  // 4 space; stopBits 0 one, 1 one and a half (with 5 data bits only), 2 two (with 6 to 8). No
  // flow control; DTR and RTS are raised. 1, or 0 with the reason in the log, also where the
  // device does not take a setting (pseudo-terminals have neither byte size nor parity, and take
  // any). The settings stay stored, also after a failure.
  int OpenSerial(int portNumber, unsigned int baudRate, unsigned char byteSize,
                 unsigned char parity, unsigned char stopBits);
  int OpenSerial(const char* portName, unsigned int baudRate, unsigned char byteSize,
                 unsigned char parity, unsigned char stopBits);
  // Opens once more with the stored name and settings.
  int ReOpen();
  void CloseSerial();
  int IsOpened() const;
  // Whether the machine has a port of the stored name now. Not while another thread opens one.
  int IsSerialExist() const;

  // Reads up to size bytes. Ends when the buffer is full, when ms milliseconds are over (at least
  // one look of 10 ms is taken), after CancelRead, and, with bWaitAll 0, when something has come
  // and then nothing more for 10 ms or up to 100 ms have gone since the last look. Returns the
  // bytes read, 0 for a closed port.
  virtual unsigned int ReadData(unsigned char* buffer, unsigned int size, unsigned int ms,
                                int bWaitAll);
  // Ends a read under way within about 100 ms. Without a lock, from any thread.
  virtual void CancelRead();
  // Writes size bytes in packets of packetSize (0: all at once), each within packetMs (0: totalMs).
  // Ends early when totalMs are over at the begin of a packet (so a total of 0 writes nothing),
  // when *cancel, which may be null and is read atomically, is not 0 there, and when a packet
  // wrote nothing. Returns the bytes that the device took.
  virtual unsigned int WriteData(const unsigned char* data, unsigned int size, unsigned int totalMs,
                                 unsigned int packetSize, unsigned int packetMs, int* cancel);
  // Throws away what was received, and goes on reading and throwing away for ms milliseconds.
  // Ends posted reads.
  virtual void ResetInputBuffer(unsigned int ms);
  // Throws away what was not sent yet. Ends posted writes.
  virtual void ResetOutputBuffer();

  // Lets posted reads and writes of this open port go to a completion port from now on, with the
  // key 0: port, or a new one for null. Returns it (the caller closes it), or null for a closed
  // port, a handle that is none, and where another completion port is in use already. A posted
  // read ends when it is full, 10 ms after the last byte, and 20 ms after its begin; a posted
  // write ends when it is through. ReadData and WriteData change these times for what begins
  // later.
  HANDLE StartIOCPReadWrite(HANDLE port);
  // Begin a read or write that ends with a completion, in the order of the posts. See OVERLAPPED
  // for who keeps what. 1 if it is under way; 0, without a completion, for a closed port, a null
  // pointer and a device that is gone, which also closes the port. Closing completes what is
  // under way with ECANCELED.
  int PostIOCPRecvBuffer(OVERLAPPED* overlapped, unsigned char* buffer, unsigned int size);
  int PostIOCPSendBuffer(OVERLAPPED* overlapped, const unsigned char* data, unsigned int size);

 private:
  int OpenSerial_Priv();
  bool OpenSteps(const CBaseStringA& path);
  bool MakeEvent(std::atomic<HANDLE>& event, const char* which);
  void CloseFile();
  unsigned int ReadPass(unsigned char* buffer, unsigned int size, unsigned int left);
  unsigned int WriteOnePacket(const unsigned char* data, unsigned int size, unsigned int ms);
  unsigned int DropInput();
  int Posted(int error, const char* operation);

  CBaseLock mLock;
  CBaseStringA mPortName;
  std::uint32_t mBaudRate;
  std::uint8_t mByteSize;
  std::uint8_t mParity;
  std::uint8_t mStopBits;
  std::atomic<HANDLE> mSerialFile;
  std::atomic<HANDLE> mReadEvent;
  std::atomic<HANDLE> mWriteEvent;
  std::atomic<std::int32_t> mCancel;
};
