#include "support/network_lab.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace qvx::test {
namespace {

constexpr const char* kOwnNamespace = "/proc/thread-self/ns/net";

int OpenOwnNamespace() {
  return open(kOwnNamespace, O_RDONLY | O_CLOEXEC);
}

void Enter(int network) {
  if (setns(network, CLONE_NEWNET) != 0) throw std::runtime_error("can't enter the namespace");
}

// Back to the former namespace at the end of the scope, whatever the body does.
class Return {
 public:
  Return() : home_(OpenOwnNamespace()) {}
  ~Return() {
    Enter(home_);
    close(home_);
  }
  Return(const Return&) = delete;
  Return& operator=(const Return&) = delete;

 private:
  int home_;
};

}  // namespace

NetworkLab::NetworkLab() {
  if (MakeHost(0) && MakeHost(1)) Build();
}

NetworkLab::~NetworkLab() {
  for (const int host : hosts_) {
    if (host >= 0) close(host);
  }
}

const char* NetworkLab::Address(int host) {
  return host == 0 ? "10.77.0.1" : "10.77.0.2";
}

const char* NetworkLab::Interface(int host) {
  return host == 0 ? "cable0" : "cable1";
}

bool NetworkLab::MakeHost(int host) {
  std::thread([&] {
    if (unshare(CLONE_NEWNET) != 0) {
      why_not_ = std::string("unshare: ") + std::strerror(errno);
    } else {
      hosts_[static_cast<std::size_t>(host)] = OpenOwnNamespace();
    }
  }).join();
  return Ready();
}

bool NetworkLab::Build() {
  const std::string other =
      "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(hosts_[1]);
  const std::string join =
      "ip link add cable0 type veth peer name cable1 && ip link set cable1 netns " + other;
  if (!Run(0, join)) return false;
  for (const int host : {0, 1}) {
    const std::string cable = std::string(" dev ") + Interface(host);
    if (!Run(host, "ip link set lo up && ip link set up" + cable + " && ip addr add " +
                       Address(host) + "/24 brd +" + cable + " && ip route add default" + cable)) {
      return false;
    }
  }
  return true;
}

bool NetworkLab::Run(int host, const std::string& command) {
  int result = -1;
  In(host, [&] { result = std::system(("(" + command + ") 2>/dev/null").c_str()); });
  if (result != 0) why_not_ = "failed: " + command;
  return result == 0;
}

void NetworkLab::In(int host, const std::function<void()>& body) {
  const Return home;
  Enter(hosts_[static_cast<std::size_t>(host)]);
  body();
}

bool NetworkLab::SlowDown() {
  for (const int host : {0, 1}) {
    if (!Run(host, "tc qdisc add dev " + std::string(Interface(host)) +
                       " root tbf rate 50mbit burst 16kb limit 60kb")) {
      return false;
    }
  }
  return true;
}

}  // namespace qvx::test
