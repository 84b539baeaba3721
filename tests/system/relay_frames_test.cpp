// Camera control through the real daemon: which frames reach the line, and when.
#include <chrono>

#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kStop[] = "FF 01 00 00 00 00 01";
constexpr size_t kFrameSize = 7;

// A frame, and the shortest time since the one before it.
struct Expected {
  const char* hex;
  int after_ms;
};

using RelayFrames = DeviceTest;

// What each code sends is tested without the daemon, and with the tool. An end that is asked for
// meanwhile waits for the whole of it.
TEST_F(RelayFrames, SequencesRunToTheirEndWithTheirWaits) {
  const struct {
    const char* model;
    uint16_t code;
    int first;
    int third;
    std::vector<Expected> frames;
  } rows[] = {
      {"QB-100", 0x2007, 0, 0, {{"FF 01 00 08 00 1D 26", 0}, {kStop, 100}, {kStop, 100}}},
      {"QB-620", 0x1021, 7, 0, {{kStop, 0}, {"FF 01 00 07 00 07 0F", 50}}},
      {"QB-620", 0x2001, 0, 9, {{kStop, 0}, {kStop, 250}}},
      {"QB-620", 0x2002, -1, -5, {{"FF 01 00 04 01 00 06", 0}, {"FF 01 00 40 00 00 41", 0}}},
      // Those without a mode of their own are relayed.
      {"QB-710", 0x2002, 0, 1, {{"FF 01 00 20 00 00 21", 0}}},
      {"qb-210", 0x2002, 0, 1, {{"FF 01 00 20 00 00 21", 0}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.model << " " << std::hex << row.code);
    StartModel(row.model);
    // From before the daemon could begin: a reader that is late can only lengthen this.
    const auto begin = sim::Clock::now();
    milliseconds waits(0);
    Control(row.code, row.first, 0, row.third);
    for (const Expected& frame : row.frames) {
      const auto arrivals = line.ReceiveFrames(1, kFrameSize);
      ASSERT_EQ(arrivals.size(), 1U);
      waits += milliseconds(frame.after_ms);
      EXPECT_EQ(sim::Hex(arrivals[0].bytes), frame.hex);
      EXPECT_GE(arrivals[0].time - begin, waits);
      daemon->Signal(SIGTERM);
    }
    ExpectEnd(0);
    EXPECT_EQ(line.Receive(1, milliseconds(0)), sim::Bytes());
  }
}

// --- Hostile packets on the command channel -----------------------------------------------------

TEST_F(RelayFrames, HostilePacketsDoNothingAndStopNothing) {
  StartModel("QB-610");
  const auto with_header = [](uint32_t magic, int32_t command, int32_t size, size_t length) {
    CicommHeader header = {};
    header.magic.Set(magic);
    header.version.Set(CICOMM_VERSION);
    header.command.Set(static_cast<uint32_t>(command));
    header.size.Set(static_cast<uint32_t>(size));
    sim::Bytes packet(length);
    memcpy(packet.data(), &header, std::min(length, sizeof(header)));
    return packet;
  };
  // Each of these follows a good command, whose bytes are then still in the daemon's buffer.
  const std::vector<sim::Bytes> packets = {
      {},
      {0x49},
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 11),
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 32),  // claims a payload it has not
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 44),  // ends before the code
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, -1, 49),  // negative size
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, INT32_MAX, 49),
      with_header(0, CICOMM_PCMD_PTZ, 17, 49),  // no target
      with_header(CICOMM_MAGIC, INT32_MIN, 17, 49),
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 65507),
      sim::Bytes(65507, 0xFF),
      sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}),  // another mode's
      sim::CameraControlPacket(
          {.target = 3, .code = CAMERA_CODE_DOWN, .first = 0, .second = 0, .third = 0}),
  };
  for (const sim::Bytes& packet : packets) {
    SCOPED_TRACE(sim::Hex(packet).substr(0, 200) + " of " + std::to_string(packet.size()));
    Control(CAMERA_CODE_LEFT);
    SendCommand(packet);
    Control(CAMERA_CODE_UP);
    EXPECT_EQ(Line(14), "FF 01 00 04 00 00 05 FF 01 00 08 00 00 09");
  }
  ExpectLineQuiet();
}

}  // namespace
