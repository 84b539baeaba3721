#include "ipc/csysmgr.h"

#include "sim/peers.h"
#include "tests/support.h"

namespace {

TEST(Csysmgr, NoticeIsAHeaderAndItsData) {
  sim::UdpPeer manager(CSYSMGR_PORT);
  const sim::Bytes data(256, 0xA5);
  EXPECT_EQ(CSYSMGR_SendPacket(0x01020304, data.data(), 256), 0);
  sim::Bytes packet = {0x53, 0x59, 0x53, 0x50, 0, 0, 0, 0, 4, 3, 2, 1};
  packet.insert(packet.end(), data.begin(), data.end());
  EXPECT_EQ(manager.Receive(), packet);
  // Impossible sizes send nothing.
  EXPECT_EQ(CSYSMGR_SendPacket(1, data.data(), 257), -1);
  EXPECT_EQ(CSYSMGR_SendPacket(1, data.data(), -1), -1);
  EXPECT_EQ(CSYSMGR_SendPacket(1, nullptr, 1), -1);
  EXPECT_EQ(manager.Receive(sim::milliseconds(0)), std::nullopt);
}

TEST(Csysmgr, NobodyListeningIsNoFailure) {
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(CSYSMGR_SendPacket(CSYSMGR_CODE_REBOOT, nullptr, 0), 0);
}

}  // namespace
