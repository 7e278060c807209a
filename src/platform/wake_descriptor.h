// A descriptor that polls readable while it is raised.
#pragma once

namespace qvx::platform {

class WakeDescriptor {
 public:
  WakeDescriptor() = default;
  ~WakeDescriptor();
  WakeDescriptor(const WakeDescriptor&) = delete;
  WakeDescriptor& operator=(const WakeDescriptor&) = delete;

  // Makes the descriptor, lowered, unless it is there. False if none can be had.
  bool Open() noexcept;
  bool IsOpen() const { return descriptor_ >= 0; }
  int Get() const { return descriptor_; }

  // Both do nothing where no change is needed.
  void Raise() noexcept;
  void Lower() noexcept;

  // In a forked child: puts a descriptor of this process, in the same state, in the place of
  // the one that it shares with its parent.
  void Renew() noexcept;

 private:
  int descriptor_ = -1;
  bool raised_ = false;
};

}  // namespace qvx::platform
