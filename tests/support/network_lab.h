// Two hosts of a test's own, joined by a cable: network namespaces with a pair of virtual
// interfaces (MTU 1500). Everything vanishes with the object, or with the process. Needs root
// and the ip and tc commands; where something is missing, Ready is false and WhyNot tells why.
#pragma once

#include <array>
#include <functional>
#include <string>

namespace qvx::test {

class NetworkLab {
 public:
  NetworkLab();
  ~NetworkLab();
  NetworkLab(const NetworkLab&) = delete;
  NetworkLab& operator=(const NetworkLab&) = delete;

  bool Ready() const { return why_not_.empty(); }
  const std::string& WhyNot() const { return why_not_; }

  // The address of host 0 or 1 on the cable, both in 10.77.0.0/24.
  static const char* Address(int host);
  static const char* Interface(int host);

  // Runs body on this thread inside the host; sockets made and threads started there belong
  // to the host for good.
  void In(int host, const std::function<void()>& body);

  // Makes both directions slow and shallow: 50 Mbit/s with a queue of about 40 packets.
  bool SlowDown();

 private:
  bool Build();
  bool MakeHost(int host);
  bool Run(int host, const std::string& command);

  std::array<int, 2> hosts_{-1, -1};
  std::string why_not_;
};

}  // namespace qvx::test

// Skips the running test where the lab could not be built.
#define QVX_NEEDS_LAB(lab) \
  if (!(lab).Ready()) GTEST_SKIP() << "no network namespaces here: " << (lab).WhyNot()
