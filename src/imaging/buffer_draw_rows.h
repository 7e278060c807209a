// The row loops under the drawing functions. Each wide form gives the bytes of its plain form,
// which goes pixel by pixel; rows have any alignment and may overlap, but for those of PickRow.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qvx::imaging {

// Whether a row may be done several pixels at a time: dst doesn't begin inside src.
bool MayReadAhead(const std::uint8_t* dst, const std::uint8_t* src, std::size_t src_bytes);

// Fill count 32-bit pixels.
void FillRow(std::uint8_t* dst, std::size_t count, std::uint32_t color);
void FillRowPlain(std::uint8_t* dst, std::size_t count, std::uint32_t color);

// Write the colour with its alpha scaled by the mask.
void TintRow(std::uint8_t* dst, const std::uint8_t* mask, std::size_t count, std::uint32_t color);
void TintRowPlain(std::uint8_t* dst, const std::uint8_t* mask, std::size_t count,
                  std::uint32_t color);

// Blend in double precision.
void BlendRowExact(std::uint8_t* dst, const std::uint8_t* src, std::size_t count);
void BlendRowExactPlain(std::uint8_t* dst, const std::uint8_t* src, std::size_t count);

// Blend in integers.
void BlendRow(std::uint8_t* dst, const std::uint8_t* src, std::size_t count);
void BlendRowPlain(std::uint8_t* dst, const std::uint8_t* src, std::size_t count);

// The same with the source's alpha scaled by alpha / 256; a transparent destination takes the
// source in any case.
void StampRow(std::uint8_t* dst, const std::uint8_t* src, std::size_t count, std::uint8_t alpha);
void StampRowPlain(std::uint8_t* dst, const std::uint8_t* src, std::size_t count,
                   std::uint8_t alpha);

// How a row of 32-bit pixels is put together.
enum class PickWay { kEach, kOneLoad, kTwoLoads, kDoubled };

// Takes the pixels src[places[i]]. Places rise and lie within the length pixels of a source row,
// which all may be read.
struct PickPlan {
  PickPlan(const std::uint32_t* all_places, std::size_t all, std::ptrdiff_t source_length);

  // A part of the row; the source stays.
  PickPlan Piece(std::size_t begin, std::size_t most) const;

  const std::uint32_t* places;
  std::size_t count;
  std::ptrdiff_t length;
  PickWay way;
};

// src is the row's first pixel, whose place is 0.
void PickRow(std::uint8_t* dst, const std::uint8_t* src, const PickPlan& plan);

}  // namespace qvx::imaging
