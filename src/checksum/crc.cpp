#include "qvx/crc.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "checksum/crc_bits.h"
#include "checksum/crc_fold.h"
#include "checksum/crc_slice.h"
#include "checksum/crc_table.h"
#include "platform/processor.h"

using qvx::platform::CarrylessMultiply;

namespace {

using qvx::checksum::kFoldConstants;

constexpr std::uint16_t kModbusPolynomial = 0x8005;
constexpr std::uint32_t kDefaultPolynomial = 0x04C11DB7;

// Everything that follows from a polynomial and the kind of register.
template <typename T>
struct Tables {
  T table[256];
  std::uint64_t folding[kFoldConstants];
};

constexpr Tables<std::uint16_t> MakeTables(std::uint16_t polynomial, bool reflected) {
  Tables<std::uint16_t> tables{};
  qvx::checksum::FillTable16(polynomial, reflected, tables.table);
  qvx::checksum::MakeFolding(std::uint32_t{polynomial} << 16, reflected, tables.folding);
  return tables;
}

// With reversed input the data folds as that of an unreflected CRC; without, it does not fold.
constexpr Tables<std::uint32_t> MakeTables(std::uint32_t polynomial, bool reversed_input) {
  Tables<std::uint32_t> tables{};
  qvx::checksum::FillTable32(polynomial, reversed_input, tables.table);
  if (reversed_input) qvx::checksum::MakeFolding(polynomial, false, tables.folding);
  return tables;
}

// Those of new objects, so that making one costs no computation.
constexpr Tables<std::uint16_t> kModbusTables = MakeTables(kModbusPolynomial, true);
constexpr Tables<std::uint32_t> kDefaultTables = MakeTables(kDefaultPolynomial, true);

template <typename T>
void Install(const Tables<T>& tables, T* table, std::uint64_t* folding) {
  std::memcpy(table, tables.table, sizeof(tables.table));
  std::memcpy(folding, tables.folding, sizeof(tables.folding));
}

constexpr std::array<std::uint8_t, 256> MirroredBytes() {
  std::array<std::uint8_t, 256> bytes{};
  for (unsigned i = 0; i < 256; ++i) {
    bytes[i] = qvx::checksum::Mirror8(static_cast<std::uint8_t>(i));
  }
  return bytes;
}

constexpr std::array<std::uint8_t, 256> kMirroredBytes = MirroredBytes();

bool Folds(std::size_t size) {
  return size >= qvx::checksum::kLeastFolded &&
         qvx::platform::WidestCarrylessMultiply() != CarrylessMultiply::kNone;
}

std::uint32_t Fold(const std::uint64_t* folding, bool reflected, std::uint32_t crc,
                   const std::uint8_t* data, std::size_t size) {
  return qvx::checksum::FoldCrc(folding, reflected, crc, data, size,
                                qvx::platform::WidestCarrylessMultiply());
}

// CRCs of 16 bits ----------------------------------------------------------------------------

std::uint16_t Append16Plain(const std::uint16_t* table, bool reflected, std::uint16_t crc,
                            const std::uint8_t* data, std::size_t size) {
  if (reflected) {
    for (std::size_t i = 0; i < size; ++i) {
      crc = static_cast<std::uint16_t>(crc >> 8 ^ table[(crc & 0xFF) ^ data[i]]);
    }
  } else {
    for (std::size_t i = 0; i < size; ++i) {
      crc = static_cast<std::uint16_t>(crc << 8 ^ table[crc >> 8 ^ data[i]]);
    }
  }
  return crc;
}

std::uint16_t Append16Sliced(const std::uint16_t* table, bool reflected, std::uint16_t crc,
                             const std::uint8_t* data, std::size_t size) {
  const int shift = reflected ? 0 : 16;
  std::uint32_t wide[256];
  std::transform(table, table + 256, wide,
                 [=](std::uint16_t entry) { return std::uint32_t{entry} << shift; });
  return static_cast<std::uint16_t>(
      qvx::checksum::SliceCrc(wide, reflected, std::uint32_t{crc} << shift, data, size) >> shift);
}

std::uint16_t Append16(const std::uint16_t* table, const std::uint64_t* folding, bool reflected,
                       std::uint16_t crc, const std::uint8_t* data, std::size_t size) {
  if (Folds(size)) {
    const int shift = reflected ? 0 : 16;
    return static_cast<std::uint16_t>(
        Fold(folding, reflected, std::uint32_t{crc} << shift, data, size) >> shift);
  }
  if (size < qvx::checksum::kLeastSliced) return Append16Plain(table, reflected, crc, data, size);
  return Append16Sliced(table, reflected, crc, data, size);
}

std::uint16_t StartValue16(std::uint16_t initial, int raw_initial) {
  return raw_initial != 0 ? initial : qvx::checksum::Mirror16(initial);
}

// The polynomial that a table comes from, if it comes from one.
std::uint16_t PolynomialOf(const std::uint16_t* table, bool reflected) {
  return reflected ? qvx::checksum::Mirror16(table[0x80]) : table[1];
}

// A caller's table may be any, but a long message is worth the look whether it is a polynomial's.
std::uint16_t Append16Foreign(const std::uint16_t* table, bool reflected, std::uint16_t crc,
                              const std::uint8_t* data, std::size_t size) {
  if (size >= qvx::checksum::kLeastSliced) {
    const auto tables = MakeTables(PolynomialOf(table, reflected), reflected);
    if (std::equal(table, table + 256, tables.table)) {
      return Append16(tables.table, tables.folding, reflected, crc, data, size);
    }
  }
  return Append16Plain(table, reflected, crc, data, size);
}

// CRCs of 32 bits ----------------------------------------------------------------------------

std::uint32_t Append32Mirrored(const std::uint32_t* table, std::uint32_t crc,
                               const std::uint8_t* data, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    crc = crc >> 8 ^ table[(crc & 0xFF) ^ kMirroredBytes[data[i]]];
  }
  return crc;
}

// In the mirror, with a register that shifts left, the bytes need not be mirrored.
std::uint32_t Append32MirroredSliced(const std::uint32_t* table, std::uint32_t crc,
                                     const std::uint8_t* data, std::size_t size) {
  std::uint32_t mirrored[256];
  for (std::size_t i = 0; i < std::size(mirrored); ++i) {
    mirrored[i] = qvx::checksum::Mirror32(table[kMirroredBytes[i]]);
  }
  return qvx::checksum::Mirror32(
      qvx::checksum::SliceCrc(mirrored, false, qvx::checksum::Mirror32(crc), data, size));
}

std::uint32_t Append32(const std::uint32_t* table, std::uint32_t crc, const std::uint8_t* data,
                       std::size_t size) {
  if (size < qvx::checksum::kLeastSliced) {
    return qvx::checksum::PlainCrc(table, true, crc, data, size);
  }
  return qvx::checksum::SliceCrc(table, true, crc, data, size);
}

}  // namespace

CCRC16::CCRC16() : mRegister(0xFFFF), mStart(0xFFFF), mRawInitial(1), mReflected(1), mFinalXor(0) {
  Install(kModbusTables, mTable, mFolding);
}

void CCRC16::SetPolyParameter(unsigned short polynomial, unsigned short initial, int rawInitial,
                              int reflected, unsigned short finalXor) {
  mStart = StartValue16(initial, rawInitial);
  mRegister = mStart;
  mRawInitial = rawInitial;
  mReflected = reflected;
  mFinalXor = finalXor;
  Install(MakeTables(polynomial, reflected != 0), mTable, mFolding);
}

void CCRC16::SetPolyParameter_USB() {
  SetPolyParameter(0x8005, 0xFFFF, 1, 1, 0xFFFF);
}

void CCRC16::SetPolyParameter_MODBUS() {
  SetPolyParameter(kModbusPolynomial, 0xFFFF, 1, 1, 0);
}

void CCRC16::SetPolyParameter_DDS110() {
  SetPolyParameter(0x8005, 0x800D, 1, 0, 0);
}

void CCRC16::SetPolyParameter_CCITT_FALSE() {
  SetPolyParameter(0x1021, 0xFFFF, 0, 0, 0);
}

void CCRC16::SetPolyParameter_RIELLO() {
  SetPolyParameter(0x1021, 0xB2AA, 0, 1, 0);
}

void CCRC16::SetPolyParameter_CDMA2000() {
  SetPolyParameter(0xC867, 0xFFFF, 0, 0, 0);
}

void CCRC16::SetPolyParameter_DECT_R() {
  SetPolyParameter(0x0589, 0, 0, 0, 1);
}

void CCRC16::SetPolyParameter_DECT_X() {
  SetPolyParameter(0x0589, 0, 0, 0, 0);
}

void CCRC16::SetPolyParameter_DNP() {
  SetPolyParameter(0x3D65, 0, 1, 1, 0xFFFF);
}

void CCRC16::SetPolyParameter_EN_13757() {
  SetPolyParameter(0x3D65, 0, 0, 0, 0xFFFF);
}

void CCRC16::SetPolyParameter_T10_DIF() {
  SetPolyParameter(0x8BB7, 0, 0, 0, 0);
}

void CCRC16::SetPolyParameter_TELEDISK() {
  SetPolyParameter(0xA097, 0, 0, 0, 0);
}

void CCRC16::AppendData(const unsigned char* data, int length) {
  if (data == nullptr || length < 1) return;
  mRegister = Append16(mTable, mFolding, mReflected != 0, mRegister, data,
                       static_cast<std::size_t>(length));
}

unsigned short CCRC16::GetResult() {
  return mRegister ^ mFinalXor;
}

void CCRC16::Reset() {
  mRegister = mStart;
}

CCRC32::CCRC32()
    : mRegister(0xFFFFFFFF),
      mStart(0xFFFFFFFF),
      mReversedInput(1),
      mReversedResult(1),
      mFinalXor(0) {
  Install(kDefaultTables, mTable, mFolding);
}

void CCRC32::SetPolyParameter(unsigned int polynomial, unsigned int initial, unsigned int finalXor,
                              int reversedInput, int reversedResult) {
  mStart = initial;
  mRegister = initial;
  mReversedInput = reversedInput;
  mReversedResult = reversedResult;
  mFinalXor = finalXor;
  Install(MakeTables(polynomial, reversedInput != 0), mTable, mFolding);
}

void CCRC32::AppendData(const unsigned char* data, int length) {
  if (data == nullptr || length < 1) return;
  const auto size = static_cast<std::size_t>(length);
  if (mReversedInput == 0) {
    mRegister = Append32(mTable, mRegister, data, size);
  } else if (Folds(size)) {
    using qvx::checksum::Mirror32;
    mRegister = Mirror32(Fold(mFolding, false, Mirror32(mRegister), data, size));
  } else if (size < qvx::checksum::kLeastSliced) {
    mRegister = Append32Mirrored(mTable, mRegister, data, size);
  } else {
    mRegister = Append32MirroredSliced(mTable, mRegister, data, size);
  }
}

unsigned int CCRC32::GetResult() {
  const std::uint32_t result =
      mReversedResult != 0 ? qvx::checksum::Mirror32(mRegister) : mRegister;
  return result ^ mFinalXor;
}

void CCRC32::Reset() {
  mRegister = mStart;
}

void InitCRC16Table(unsigned short polynomial, int reflected, unsigned short* table) {
  if (table != nullptr) qvx::checksum::FillTable16(polynomial, reflected != 0, table);
}

unsigned short CalculateCRC16(unsigned short* table, unsigned short initial, int rawInitial,
                              int reflected, unsigned short finalXor, const unsigned char* data,
                              unsigned int length) {
  if (table == nullptr) return 0;
  const std::uint16_t start = StartValue16(initial, rawInitial);
  if (data == nullptr) return start ^ finalXor;
  return Append16Foreign(table, reflected != 0, start, data, length) ^ finalXor;
}
