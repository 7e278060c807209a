// Nearest-pixel scaling.
#pragma once

#include <cstdint>

#include "imaging/buffer_draw_layout.h"

namespace qvx::imaging {

// Walks target places 0, 1, ... and tells the source place of each.
class StretchSteps {
 public:
  StretchSteps(std::int64_t source, std::int64_t target);

  std::int64_t Place() const { return place_ < 0 ? 0 : place_; }

  void Next() {
    const bool passes = rest_ >= rest_limit_;
    rest_ += passes ? -rest_limit_ : rest_step_;
    place_ += whole_step_ + (passes ? 1 : 0);
  }

 private:
  std::int64_t place_;
  std::int64_t rest_;
  std::int64_t whole_step_;
  std::int64_t rest_step_;
  std::int64_t rest_limit_;  // from here on a step passes one place more
};

// Both sides have the same size of pixels.
void Stretch(const Target& dst, const Source& src);
void StretchBlended(const Target& dst, const Source& src);

}  // namespace qvx::imaging
