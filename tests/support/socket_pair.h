// A connected TCP socket of the library, non-blocking, with a plain one at the far end.
#pragma once

#include <gtest/gtest.h>

#include "platform/socket.h"
#include "support/raw_peer.h"

namespace qvx::test {

inline constexpr int kLongWait = 20000;  // milliseconds; a bound that is never reached

struct SocketPair {
  SocketPair() : ours(platform::MakeTcpSocket()) {
    EXPECT_EQ(platform::StartConnectIpv4(ours, {0x7F000001, listener.Port()}),
              platform::ConnectOutcome::kConnected);
    peer = listener.Accept();
    platform::SetNonBlocking(ours, true);
  }
  ~SocketPair() { platform::CloseSocket(ours); }
  SocketPair(const SocketPair&) = delete;
  SocketPair& operator=(const SocketPair&) = delete;

  // Sends from the far end and waits until all of it can be received here. For a few KiB.
  void Bring(const std::string& bytes) {
    const std::size_t before = platform::PendingBytes(ours);
    ASSERT_TRUE(peer.Send(bytes));
    while (platform::PendingBytes(ours) < before + bytes.size()) {
      platform::SetLastSocketError(0);
      ASSERT_GT(platform::PollSocket(ours, platform::kPollRead, kLongWait), 0);
    }
  }

  RawListener listener;
  platform::SocketValue ours;
  RawPeer peer;
};

}  // namespace qvx::test
