#include "platform/c_locale.h"

#include <locale.h>

namespace qvx::platform {
namespace {

// The C library keeps one constant object for this locale; asking for it takes no memory.
locale_t CLocale() noexcept {
  return newlocale(LC_ALL_MASK, "C", nullptr);
}

}  // namespace

CLocaleScope::CLocaleScope() noexcept : previous_(uselocale(CLocale())) {}

CLocaleScope::~CLocaleScope() {
  uselocale(static_cast<locale_t>(previous_));
}

}  // namespace qvx::platform
