// For tests of loops that have several forms: rounds take turns at the forms for the processors
// with the widest vectors, with AVX2 and with neither, as far as this one has them.
#pragma once

#include <cstddef>

#include "platform/processor.h"

namespace qvx::test {

class ProcessorTurn {
 public:
  static constexpr std::size_t kTurns = 3;
  explicit ProcessorTurn(std::size_t round)
      : limit_(static_cast<platform::Vectors>(round % kTurns)) {}

 private:
  platform::VectorLimit limit_;
};

}  // namespace qvx::test
