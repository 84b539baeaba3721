#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ipc/cicomm.h"
#include "ipc/csysmgr.h"
#include "sim/peers.h"
#include "tests/support.h"
#include "tests/world/failing_call.h"

namespace {

using sim::Bytes;
using sim::UdpPeer;
using std::string;
using support::ExpectTakes;
using support::OnStderr;

constexpr int kPort = 10017;
constexpr int kPeerPort = 10005;
// The largest payload of an IPv4 datagram.
constexpr int kLargest = 65507 - CICOMM_HEADER_SIZE;

class Channel : public testing::Test {
 protected:
  Channel() { Init(kPort); }
  ~Channel() override { channel_.Close(&channel_); }

  void Init(int port) { EXPECT_EQ(CICOMM_Init(&channel_, port), 0); }
  void Close() { channel_.Close(&channel_); }
  int Wait(int ms) { return channel_.Wait(&channel_, ms); }
  int Recv() { return channel_.Recv(&channel_, &command_); }
  string Send(int size, const void* data) {
    return OnStderr([&] { return channel_.Send(&channel_, CAMERA_QUERY, kPeerPort, data, size); });
  }

  inline static CICOMM channel_;
  int command_ = -99;
  UdpPeer peer_{kPeerPort};
};

// A packet of `length` bytes, truncated within the header if shorter.
Bytes Packet(int32_t command, int32_t port, int32_t size, size_t length = 32) {
  CicommHeader header = {};
  header.magic.Set(CICOMM_MAGIC);
  header.version.Set(1);
  header.command.Set(static_cast<uint32_t>(command));
  header.port.Set(static_cast<uint32_t>(port));
  header.size.Set(static_cast<uint32_t>(size));
  Bytes bytes(std::max(length, sizeof(header)), 0xEE);
  memcpy(bytes.data(), &header, sizeof(header));
  bytes.resize(length);
  return bytes;
}

TEST_F(Channel, OpensAndClosesItsSocket) {
  for (const auto& [port, bound] :
       {std::pair(65536 + kPort, "127.0.0.1 10017"), {0, "0.0.0.0 0"}}) {
    Close();
    Init(port);
    const int fd = channel_.GetSocket(&channel_);
    EXPECT_EQ(support::LocalAddress(fd), bound);
    Close();
    EXPECT_EQ(channel_.GetSocket(&channel_), -1);
    const tools::UniqueFd reused(dup(0));  // takes the freed number
    EXPECT_EQ(reused.Get(), fd);
    Close();
    EXPECT_GE(fcntl(fd, F_GETFD), 0);
  }
}

TEST_F(Channel, FailsWithoutASocket) {
  Close();
  {
    const FailingCall call("socket");
    support::OnStdout([] { OnStderr([] { return CICOMM_Init(&channel_, kPort); }); });
  }
  EXPECT_EQ(channel_.GetSocket(&channel_), -1);
  EXPECT_EQ(Wait(60000), -1);
  EXPECT_EQ(OnStderr([this] { return Recv(); }), "-1 ");
  EXPECT_EQ(Send(2, "AB"), "-4 [CICOMM_Send] error, reason(SendTo -1 vs 34)\n");
}

TEST_F(Channel, SendsHeaderAndPayload) {
  const string start = "49 43 4F 4D 01 00 00 00 34 00 00 00 ";
  const string zeros = " 00 00 00 00 00 00 00 00 00 00 00 00";
  const std::tuple<int, int, string> rows[] = {
      {kPort, 2, start + "21 27 00 00 02 00 00 00" + zeros + " 41 42"},
      {kPort, 0, start + "21 27 00 00 00 00 00 00" + zeros},
      {-1, 1, start + "FF FF FF FF 01 00 00 00" + zeros + " 41"},
  };
  for (const auto& [own_port, size, sent] : rows) {
    Close();
    Init(own_port);
    EXPECT_EQ(Send(size, size == 0 ? nullptr : "AB"), std::to_string(32 + size) + ' ');
    EXPECT_EQ(sim::Hex(*peer_.Receive()), sent);
  }
}

TEST_F(Channel, SendsUpToItsLimit) {
  const Bytes payload(CICOMM_MAX_DATA + 1, 0x77);
  const std::pair<int, string> rows[] = {
      {kLargest, "65507 "},
      // Below the limit of the channel, but above that of a datagram.
      {102368,
       "-4 [SendTo] Error Number : 90, Error String Message too long\n"
       "[CICOMM_Send] error, reason(SendTo -1 vs 102400)\n"},
      {102369, "-2 [CICOMM_Send] error, reason(size over 102369 vs 102368)\n"},
      {-1, "-2 [CICOMM_Send] error, reason(size over -1 vs 102368)\n"},
  };
  for (const auto& [size, outcome] : rows)
    EXPECT_EQ(Send(size, payload.data()), outcome);
  EXPECT_EQ(Send(-5, nullptr), "-1 [CICOMM_Send] error, reason(size[-5], buff[0])\n");
  EXPECT_EQ(peer_.Receive()->size(), 65507U);
  EXPECT_EQ(peer_.Receive(sim::milliseconds(0)), std::nullopt);
}

TEST_F(Channel, ReceivesPacketsOfAnyShape) {
  const std::tuple<int32_t, int32_t, size_t, int, int32_t> rows[] = {
      {7, 40, 72, 40, 7},         {-1, 0, 32, 0, kPeerPort},  // answers go to the sender's own port
      {0, -3, 32, -3, 0},         {7, 40, 19, 40, 7},         // truncated within the size
      {-1, 40, 16, 0, kPeerPort}, {-1, 40, 14, 0, 0xFFFF},    // truncated within the port
      {7, 40, 1, 0, 0},
  };
  for (const auto& [port, size, length, result, answer_port] : rows) {
    peer_.SendTo(kPort, Packet(11, port, size, length));
    EXPECT_EQ(Wait(60000), 0);
    EXPECT_EQ(Recv(), result) << length;
    EXPECT_EQ(channel_.GetHeader(&channel_)->port.GetSigned(), answer_port) << length;
    EXPECT_EQ(command_, length >= 12 ? 11 : 0);
  }
  peer_.SendTo(kPort, Packet(11, 7, 5, 40));
  EXPECT_EQ(channel_.Recv(&channel_, nullptr), 5);
  // An invalid packet leaves the last one unchanged.
  peer_.SendTo(kPort, {});
  EXPECT_EQ(OnStderr([this] { return Recv(); }), "-1 [CICOMM_Recv] error, reason(recvfrom)\n");
  EXPECT_EQ(channel_.GetHeader(&channel_)->command.Get(), 11U);
  EXPECT_EQ(channel_.GetData(&channel_)[7], 0xEE);
}

TEST_F(Channel, WaitsForTheGivenTimeout) {
  for (const int ms : {0, 120, 1050})
    ExpectTakes(ms, [&] { EXPECT_EQ(Wait(ms), -2); });
  close(channel_.GetSocket(&channel_));
  EXPECT_EQ(Wait(60000), -3);
  channel_.socket = -1;
}

TEST_F(Channel, SendsWithoutAnObject) {
  const Bytes payload(kLargest, 0x55);
  const auto descriptors = support::OpenDescriptors();
  const std::pair<int, int> rows[] = {{-1, 0}, {-1, 100}, {channel_.socket, kLargest}};
  for (const auto& [socket, size] : rows) {
    EXPECT_EQ(CICOMM_SendCommand(socket, 34, 77, 65536 + kPeerPort, payload.data(), size, 999),
              32 + size);
    Bytes expected = Packet(34, 77, size);
    expected.insert(expected.end(), payload.begin(), payload.begin() + size);
    EXPECT_EQ(peer_.Receive(), expected);
  }
  EXPECT_EQ(support::OpenDescriptors(), descriptors);
}

TEST_F(Channel, SendToRejectsInvalidArguments) {
  EXPECT_EQ(SendTo(1, kPeerPort, nullptr, 5, 1), -1);
  EXPECT_EQ(SendTo(1, kPeerPort, "x", 0, 1), -1);
  EXPECT_EQ(SendTo(-1, kPeerPort, "x", -7, 1), -1);
  EXPECT_EQ(SendTo(1, kPeerPort, "x", -7, 1), -7);
}

TEST(Csysmgr, SendsAHeaderAndItsData) {
  for (int i = 0; i < 2; ++i)  // without a receiver
    EXPECT_EQ(CSYSMGR_SendPacket(CSYSMGR_CODE_REBOOT, nullptr, 0), 0);
  sim::UdpPeer manager(CSYSMGR_PORT);
  const sim::Bytes data(256, 0xA5);
  EXPECT_EQ(CSYSMGR_SendPacket(0x01020304, data.data(), 256), 0);
  sim::Bytes packet = {0x53, 0x59, 0x53, 0x50, 0, 0, 0, 0, 4, 3, 2, 1};
  packet.insert(packet.end(), data.begin(), data.end());
  EXPECT_EQ(manager.Receive(), packet);
  // Invalid sizes are rejected.
  EXPECT_EQ(CSYSMGR_SendPacket(1, data.data(), 257), -1);
  EXPECT_EQ(CSYSMGR_SendPacket(1, data.data(), -1), -1);
  EXPECT_EQ(CSYSMGR_SendPacket(1, nullptr, 1), -1);
  EXPECT_EQ(manager.Receive(sim::milliseconds(0)), std::nullopt);
}

}  // namespace
