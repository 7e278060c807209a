// The factors with which a product of the formulas, rounded by itself, is the rounded upper half
// of a 16-bit product with 15 fraction bits: every entry of the tables comes out exactly.
#pragma once

#include <cstdint>

namespace qvx::imaging {

// Of luma less its black, taken twice, and of chroma less its middle, taken four times.
inline constexpr std::int16_t kLuma = 19071;      // 1.164
inline constexpr std::int16_t kRedOfV = 13075;    // 1.596
inline constexpr std::int16_t kGreenOfU = -3211;  // -0.392
inline constexpr std::int16_t kGreenOfV = -6658;  // -0.813
inline constexpr std::int16_t kBlueOfU = 16523;   // 2.017

// Of components as they are.
struct RgbFactors {
  std::int16_t red, green, blue;
};

inline constexpr RgbFactors kFactorsOfY{8421, 16515, 3213};     // 0.257, 0.504, 0.098
inline constexpr RgbFactors kFactorsOfU{-4850, -9535, 14386};   // -0.148, -0.291, 0.439
inline constexpr RgbFactors kFactorsOfV{14386, -12058, -2327};  // 0.439, -0.368, -0.071

}  // namespace qvx::imaging
