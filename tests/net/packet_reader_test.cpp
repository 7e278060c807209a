#include "net/packet_reader.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/failing_new.h"
#include "support/fault_plan.h"
#include "support/packet_bytes.h"
#include "support/socket_pair.h"

namespace {

using qvx::net::PacketReader;
using qvx::net::PacketSink;
using qvx::platform::Operation;
using namespace qvx::test;

// Keeps what comes; with a head size, payloads that begin with 'P' go to a place of its own
// and those that begin with 'D' too, but for their middle third.
class Keeper : public PacketSink {
 public:
  explicit Keeper(std::uint32_t head = 0) : head_(head) {}

  bool OnPacket(tagTCPPACKETRECV& record) override {
    EXPECT_EQ(record.bComplete, 1);
    got.emplace_back(reinterpret_cast<char*>(record.pPayload), record.nLength);
    return true;
  }

  std::uint32_t HeadSize() override { return head_; }

  unsigned char* Place(const tagTCPPACKETRECV& record, std::uint32_t* room) override {
    EXPECT_FALSE(asked_);
    const unsigned char kind = record.pPayload[0];
    EXPECT_EQ(*room, record.nLength - record.nPayloadBytes);
    if (kind != 'P' && kind != 'D') return nullptr;
    const std::uint32_t third = record.nLength / 3;
    const bool middle = record.nPayloadBytes >= third && record.nPayloadBytes < 2 * third;
    if (kind == 'D' && middle) return nullptr;
    asked_ = true;
    place_.resize(record.nLength, '?');
    if (kind == 'D' && record.nPayloadBytes < third) *room = third - record.nPayloadBytes;
    return reinterpret_cast<unsigned char*>(place_.data()) + record.nPayloadBytes;
  }

  void Placed(const tagTCPPACKETRECV& record, std::uint32_t size) override {
    EXPECT_TRUE(asked_);
    EXPECT_LE(record.nPayloadBytes + size, record.nLength);
    asked_ = false;
  }

  bool OnPlacedPacket(const tagTCPPACKETRECV& record) override {
    place_.resize(record.nLength, '?');
    std::memcpy(place_.data(), record.pPayload, head_);
    got.push_back(place_);
    place_.clear();
    return true;
  }

  std::vector<std::string> got;

 private:
  const std::uint32_t head_;
  std::string place_;
  bool asked_ = false;
};

std::vector<std::string> Payloads() {
  std::vector<std::string> payloads;
  for (const std::size_t size : {1, 20, 24, 25, 1000, 70'000, 3, 300'000, 300'000, 2}) {
    payloads.push_back(Pattern(size, static_cast<unsigned int>(payloads.size())));
    payloads.back()[0] = "PNDPPPNPDN"[payloads.size() - 1];
  }
  return payloads;
}

// One end of a connection with a reader.
struct Reading {
  ~Reading() { qvx::net::ClearPacket(record); }
  bool Receive(PacketSink& sink) { return reader.Receive(pair.ours, true, record, sink); }

  SocketPair pair;
  PacketReader reader;
  tagTCPPACKETRECV record{};
};

// Sends the packets and receives until the end of the connection.
void Transfer(const std::vector<std::string>& payloads, Keeper& keeper) {
  Reading end;
  std::string wire;
  for (const std::string& payload : payloads) wire += PacketBytes(payload);
  std::thread sender([&] {
    end.pair.peer.Send(wire);
    end.pair.peer.Close();
  });
  while (qvx::platform::PollSocket(end.pair.ours, 0x0300, kLongWait) == 0x0300) {
    ASSERT_TRUE(end.Receive(keeper));
  }
  EXPECT_FALSE(end.Receive(keeper));
  EXPECT_EQ(end.record.nHeaderBytes, 0u);
  sender.join();
}

// Where the keeper dropped bytes there are question marks instead.
bool IsAsSent(const std::string& got, const std::string& sent, std::uint32_t head) {
  const bool drops = head != 0 && sent[0] == 'D' && sent.size() > head;
  const std::size_t sure = drops ? sent.size() / 3 : sent.size();
  if (got.size() != sent.size() || got.compare(0, sure, sent, 0, sure) != 0) return false;
  const auto rest = static_cast<std::ptrdiff_t>(sure);
  return std::equal(got.begin() + rest, got.end(), sent.begin() + rest,
                    [](char arrived, char given) { return arrived == given || arrived == '?'; });
}

TEST(PacketReader, PacketsComeWholeHoweverTheyAreSplit) {
  std::vector<std::string> payloads = Payloads();
  for (const std::size_t limit : {SIZE_MAX, std::size_t{1500}, std::size_t{7}}) {
    if (limit == 7) payloads.resize(7);  // the long ones would take long
    for (const std::uint32_t head : {0u, 24u}) {
      FaultPlan plan;
      plan.Shorten(Operation::kReceive, 1, limit, 1 << 30);
      Keeper keeper(head);
      Transfer(payloads, keeper);
      ASSERT_EQ(keeper.got.size(), payloads.size());
      for (std::size_t i = 0; i < payloads.size(); ++i) {
        EXPECT_TRUE(IsAsSent(keeper.got[i], payloads[i], head)) << i << " " << head << " " << limit;
      }
    }
  }
}

TEST(PacketReader, SmallPacketsShareACall) {
  Reading end;
  std::string wire;
  for (int i = 0; i < 100; ++i) wire += PacketBytes("payload " + std::to_string(i));
  end.pair.Bring(wire);
  FaultPlan plan;
  Keeper keeper;
  EXPECT_TRUE(end.Receive(keeper));
  EXPECT_EQ(keeper.got.size(), 100u);
  EXPECT_EQ(plan.Calls(Operation::kReceive), 1);
}

TEST(PacketReader, LargePayloadsReuseTheirMemory) {
  struct Counter : PacketSink {
    bool OnPacket(tagTCPPACKETRECV&) override {
      ++packets;
      return true;
    }
    int packets = 0;
  } sink;
  const std::string packet = PacketBytes(Pattern(200'000));
  Reading end;
  for (int i = 1; i <= 3; ++i) {
    std::thread sender([&] { end.pair.peer.Send(packet); });
    {
      FailingAllocations count(1'000'000);
      while (sink.packets < i) {
        EXPECT_GT(qvx::platform::PollSocket(end.pair.ours, 0x0300, kLongWait), 0);
        EXPECT_TRUE(end.Receive(sink));
      }
      EXPECT_TRUE(i == 1 || count.Seen() == 0);
    }
    sender.join();
  }
}

TEST(PacketReader, ClaimedLengthCostsNothing) {
  Reading end;
  end.pair.Bring(HeaderBytes(0xABCDBBBB, 0, 1, 0xFFFFFFFF) + "0123456789");
  Keeper keeper;
  EXPECT_TRUE(end.Receive(keeper));
  EXPECT_EQ(end.record.nPayloadBytes, 10u);
  EXPECT_LE(end.record.nPayloadRoom, 65536u);
}

}  // namespace
