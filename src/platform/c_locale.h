// The C locale on the calling thread, for as long as the object lives. The host's own locale,
// of the process and of the thread, holds again afterwards. Never fails.
#pragma once

namespace qvx::platform {

class CLocaleScope {
 public:
  CLocaleScope() noexcept;
  ~CLocaleScope();
  CLocaleScope(const CLocaleScope&) = delete;
  CLocaleScope& operator=(const CLocaleScope&) = delete;

 private:
  void* previous_;
};

}  // namespace qvx::platform
