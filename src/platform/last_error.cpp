#include "platform/last_error.h"

#include <string.h>

namespace qvx::platform {
namespace {

thread_local std::uint32_t last_error = 0;

}  // namespace

void SetLastErrorCode(std::uint32_t code) noexcept {
  last_error = code;
}

std::uint32_t LastErrorCode() noexcept {
  return last_error;
}

const char* SystemErrorText(int error) noexcept {
  const char* text = strerrordesc_np(error);
  return text != nullptr ? text : "Unknown error";
}

}  // namespace qvx::platform
