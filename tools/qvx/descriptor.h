// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace qvx::tool {

class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() { Close(); }
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;

  int Get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }
  void Close() {
    if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
  }

 private:
  int descriptor_;
};

}  // namespace qvx::tool
