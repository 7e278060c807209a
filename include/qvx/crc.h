// Cyclic redundancy checks of 16 and 32 bits with free parameters. Set parameters, append data
// in any pieces, read the result, reset for the next message. Nothing fails.
//
// An engine holds its tables itself (about 0.6 KiB or 1.1 KiB), so copies work by themselves. One
// thread at a time uses an engine. Data of 16 bytes or more goes through carry-less
// multiplication where the processor has it, with the same results.
//
// Names and parameters are those of the catalogue of parametrised CRC algorithms; "check" is
// the result over the nine characters 123456789.
#pragma once

#include <cstdint>

#include "qvx/types.h"

class QVX_API CCRC16 {
 public:
  CCRC16();  // the parameters of MODBUS

  // initial is bit-reversed first unless rawInitial is non-zero. Starts a new message.
  void SetPolyParameter(unsigned short polynomial, unsigned short initial, int rawInitial,
                        int reflected, unsigned short finalXor);

  // Named parameters. Each starts a new message.
  void SetPolyParameter_USB();          // check B4C8
  void SetPolyParameter_MODBUS();       // check 4B37
  void SetPolyParameter_DDS110();       // check 9ECF
  void SetPolyParameter_CCITT_FALSE();  // check 29B1
  void SetPolyParameter_RIELLO();       // check 63D0
  void SetPolyParameter_CDMA2000();     // check 4C06
  void SetPolyParameter_DECT_R();       // check 007E
  void SetPolyParameter_DECT_X();       // check 007F
  void SetPolyParameter_DNP();          // check EA82
  void SetPolyParameter_EN_13757();     // check C2B7
  void SetPolyParameter_T10_DIF();      // check D0DB
  void SetPolyParameter_TELEDISK();     // check 0FB3

  // A null data or a length below 1 adds nothing.
  void AppendData(const unsigned char* data, int length);

  // The CRC of all data since the start; appending may go on.
  unsigned short GetResult();

  // Starts a new message with the same parameters.
  void Reset();

 private:
  std::uint16_t mRegister;
  std::uint16_t mStart;
  int mRawInitial;
  int mReflected;
  std::uint16_t mFinalXor;
  std::uint16_t mTable[256];
  std::uint64_t mFolding[10];
};

class QVX_API CCRC32 {
 public:
  CCRC32();  // CRC-32/MPEG-2: check 0376E6E7; not the CRC of zip files

  // With reversedInput each byte's bits are reversed on their way into a register that shifts
  // right: an unreflected CRC in a mirrored register, which reversedResult mirrors back.
  // Without it, the table is that of an unreflected CRC and the register still shifts right,
  // which is no catalogued CRC. initial goes into the register as it is. Starts a new message.
  void SetPolyParameter(unsigned int polynomial, unsigned int initial, unsigned int finalXor,
                        int reversedInput, int reversedResult);

  // A null data or a length below 1 adds nothing.
  void AppendData(const unsigned char* data, int length);

  // The CRC of all data since the start; appending may go on.
  unsigned int GetResult();

  // Starts a new message with the same parameters.
  void Reset();

 private:
  std::uint32_t mRegister;
  std::uint32_t mStart;
  int mReversedInput;
  int mReversedResult;
  std::uint32_t mFinalXor;
  std::uint32_t mTable[256];
  std::uint64_t mFolding[10];
};

extern "C" {

// Fills the 256 entries of table for CalculateCRC16. A null table stays null.
QVX_API void InitCRC16Table(unsigned short polynomial, int reflected, unsigned short* table);

// The CRC of one message with a table of the caller, which is only read; arguments as for
// CCRC16::SetPolyParameter. 0 for a null table; a null data or a length of 0 is an empty message.
QVX_API unsigned short CalculateCRC16(unsigned short* table, unsigned short initial, int rawInitial,
                                      int reflected, unsigned short finalXor,
                                      const unsigned char* data, unsigned int length);

}  // extern "C"
