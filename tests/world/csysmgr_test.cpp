#include "ipc/csysmgr.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "net/udp_socket.h"

namespace {

using Bytes = std::vector<uint8_t>;

class Csysmgr : public testing::Test {
 protected:
  void SetUp() override {
    manager_ = ZSK_OpenLocalUDPSSocket(CSYSMGR_PORT);
    ASSERT_GE(manager_, 0);
  }
  void TearDown() override { close(manager_); }

  // A notice that has been sent is there at once: loopback delivers within the send.
  std::optional<Bytes> Received() {
    Bytes bytes(1000);
    const ssize_t length = recv(manager_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (length < 0) return std::nullopt;
    bytes.resize(static_cast<size_t>(length));
    return bytes;
  }

  int manager_ = -1;
};

TEST_F(Csysmgr, NoticeIsAHeaderAndItsData) {
  EXPECT_EQ(CSYSMGR_SendPacket(CSYSMGR_CODE_REBOOT, nullptr, 0), 0);
  EXPECT_EQ(Received(), (Bytes{0x53, 0x59, 0x53, 0x50, 0, 0, 0, 0, 0x54, 0x42, 0x45, 0x52}));

  const Bytes data(256, 0xA5);
  EXPECT_EQ(CSYSMGR_SendPacket(0x01020304, data.data(), 256), 0);
  const Bytes header = {0x53, 0x59, 0x53, 0x50, 0, 0, 0, 0, 4, 3, 2, 1};
  const Bytes packet = Received().value_or(Bytes());
  ASSERT_EQ(packet.size(), header.size() + data.size());
  EXPECT_TRUE(std::equal(header.begin(), header.end(), packet.begin()));
  EXPECT_TRUE(std::equal(data.begin(), data.end(), packet.begin() + CSYSMGR_HEADER_SIZE));
}

TEST_F(Csysmgr, ImpossibleSizesSendNothing) {
  const uint8_t data[300] = {};
  EXPECT_EQ(CSYSMGR_SendPacket(1, data, 257), -1);
  EXPECT_EQ(CSYSMGR_SendPacket(1, data, -1), -1);
  EXPECT_EQ(CSYSMGR_SendPacket(1, nullptr, 1), -1);
  EXPECT_EQ(Received(), std::nullopt);
}

TEST_F(Csysmgr, NobodyListeningIsNoFailure) {
  close(manager_);
  manager_ = -1;
  EXPECT_EQ(CSYSMGR_SendPacket(CSYSMGR_CODE_REBOOT, nullptr, 0), 0);
  EXPECT_EQ(CSYSMGR_SendPacket(CSYSMGR_CODE_REBOOT, nullptr, 0), 0);
}

}  // namespace
