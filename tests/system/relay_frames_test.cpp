// Camera control through the real daemon: sequences with their pauses, and invalid packets.
#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

using RelayFrames = DeviceTest;

// Other tests check the frames of each code. A stop requested during a sequence waits for its end.
TEST_F(RelayFrames, CompletesSequencesWithTheirPauses) {
  const std::string stop = " FF 01 00 00 00 00 01";
  const std::tuple<const char*, uint16_t, std::string, int> rows[] = {
      // total pauses in ms
      {"QB-100", CAMERA_CODE_UP, "FF 01 00 08 00 1D 26" + stop + stop, 200},
      {"QB-620", 0x1021, "FF 01 00 00 00 00 01 FF 01 00 07 00 00 08", 50},
      {"QB-620", CAMERA_CODE_FOCUS, "FF 01 00 00 00 00 01" + stop, 250},
  };
  for (const auto& [model, code, frames, waits_ms] : rows) {
    SCOPED_TRACE(std::string(model) + " " + frames);
    StartModel(model);
    const auto begin = sim::Clock::now();
    Control(code);
    std::string sent = Line(7);
    daemon->Signal(SIGTERM);
    sent += " " + Line((frames.size() + 1) / 3 - 7);
    EXPECT_EQ(sent, frames);
    EXPECT_GE(sim::Clock::now() - begin, milliseconds(waits_ms));
    ExpectEnd(0);
    EXPECT_EQ(line.Receive(1, milliseconds(0)), sim::Bytes());
  }
}

// --- Hostile packets on the command channel -----------------------------------------------------

TEST_F(RelayFrames, IgnoresHostilePackets) {
  StartModel("QB-610");
  const auto with_header = [](int32_t command, int32_t size, size_t length) {
    constexpr size_t kSizeAt = 16;
    sim::Bytes packet = sim::CommandPacket(command, {});
    StoreLe32(packet.data() + kSizeAt, static_cast<uint32_t>(size));
    packet.resize(length);
    return packet;
  };
  // Each of these follows a valid command, whose bytes are then still in the daemon's buffer.
  const std::vector<sim::Bytes> packets = {
      {},
      with_header(CICOMM_PCMD_PTZ, 17, 32),  // missing payload
      with_header(CICOMM_PCMD_PTZ, 17, 44),  // ends before the code
      with_header(CICOMM_PCMD_PTZ, -1, 49),  // negative size
      with_header(CICOMM_PCMD_PTZ, INT32_MAX, 49),
      sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}),  // command of another mode
      sim::CameraControlPacket(
          {.target = 3, .code = CAMERA_CODE_DOWN, .first = 0, .second = 0, .third = 0}),
  };
  for (const sim::Bytes& packet : packets) {
    SCOPED_TRACE(sim::Hex(packet));
    Control(CAMERA_CODE_LEFT);
    SendCommand(packet);
    Control(CAMERA_CODE_UP);
    EXPECT_EQ(Line(14), "FF 01 00 04 00 00 05 FF 01 00 08 00 00 09");
  }
  ExpectLineQuiet();
}

}  // namespace
