// Camera control through the real daemon: which frames reach the line, and when.
#include <chrono>

#include "tests/system/device_fixture.h"

namespace {

using sim::milliseconds;

constexpr char kStop[] = "FF 01 00 00 00 00 01";

// A frame and the shortest time since the one before it.
struct Expected {
  const char* hex;
  int after_ms;
};

struct ControlRow {
  const char* model;
  uint16_t code;
  int first;
  int second;
  int third;
  std::vector<Expected> frames;
};

class RelayFrames : public DeviceTest {
 protected:
  void ExpectFrames(const ControlRow& row) {
    SCOPED_TRACE(testing::Message() << row.model << " " << std::hex << row.code);
    // From before the daemon could begin: a reader that is late can only lengthen this.
    const auto begin = sim::Clock::now();
    milliseconds waits(0);
    Control(row.code, row.first, row.second, row.third);
    const auto arrivals = line.ReceiveFrames(row.frames.size(), PELCO_FRAME_SIZE);
    ASSERT_EQ(arrivals.size(), row.frames.size());
    for (size_t i = 0; i < arrivals.size(); ++i) {
      waits += milliseconds(row.frames[i].after_ms);
      EXPECT_EQ(sim::Hex(arrivals[i].bytes), row.frames[i].hex);
      EXPECT_GE(arrivals[i].time - begin, waits);
    }
  }

  static constexpr size_t PELCO_FRAME_SIZE = 7;
};

// One row of each kind; the tool's tests send every code.
const std::vector<ControlRow> kRows = {
    {"QB-610", 0x2007, 0, 0, 0, {{"FF 01 00 08 00 00 09", 0}}},
    {"QB-610", 0x2002, 0, 0, 1, {}},  // another model's code
    {"QB-620", 0x4001, -1, 0, 0, {{"FF 01 00 09 00 FF 09", 0}}},
    {"QB-620", 0x1021, 7, 0, 0, {{kStop, 0}, {"FF 01 00 07 00 07 0F", 50}}},
    {"QB-620", 0x4003, 1, 0, 0, {{kStop, 0}, {"FF 01 00 07 00 63 6B", 50}}},
    {"QB-620", 0x1073, -128, 0, 0, {{"FF 01 00 27 00 FB 23", 0}}},
    {"QB-620", 0x2002, -1, 0, -5, {{"FF 01 00 04 01 00 06", 0}, {"FF 01 00 40 00 00 41", 0}}},
    {"QB-620", 0x1012, 0, 0, 0, {{kStop, 0}, {kStop, 250}}},
    {"QB-620", 0x2009, 0, 0, 0, {{"FF 01 00 04 1D 00 22", 0}, {kStop, 100}, {kStop, 100}}},
    {"QB-100", 0x2005, 0, 0, 0, {{"FF 01 00 03 00 5F 63", 0}, {kStop, 100}, {kStop, 100}}},
    {"QB-100", 0x1012, 9, 9, -128, {{"FF 01 00 40 00 00 41", 0}}},
    {"QB-100", 0x2001, 0, 0, 9, {{kStop, 0}, {kStop, 250}}},
    {"QB-100", 0x1020, 5, 0, 0, {}},
};

TEST_F(RelayFrames, AndTheirWaits) {
  for (const char* model : {"QB-610", "QB-620", "QB-100"}) {
    StartModel(model);
    for (const ControlRow& row : kRows) {
      if (std::string(row.model) == model) ExpectFrames(row);
    }
    ExpectLineQuiet();
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

TEST_F(RelayFrames, TargetOtherThanFourIsIgnored) {
  StartModel("QB-100");
  SendCommand(sim::CameraControlPacket(
      {.target = 3, .code = CAMERA_CODE_UP, .first = 0, .second = 0, .third = 0}));
  SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  ExpectLineQuiet();
}

TEST_F(RelayFrames, SequenceRunsToItsEndThroughSigterm) {
  StartModel("QB-100");
  const auto begin = sim::Clock::now();
  Control(CAMERA_CODE_UP);
  ASSERT_EQ(line.ReceiveFrames(1, PELCO_FRAME_SIZE).size(), 1U);
  daemon->Signal(SIGTERM);
  const auto stops = line.ReceiveFrames(2, PELCO_FRAME_SIZE);
  ASSERT_EQ(stops.size(), 2U);
  EXPECT_GE(stops[0].time - begin, milliseconds(100));
  EXPECT_GE(stops[1].time - begin, milliseconds(200));
  ExpectEnd(0);
}

TEST_F(RelayFrames, ModelsWithoutModeAreRelayed) {
  for (const char* model : {"QB-710", "qb-210", "QB-620 ", ""}) {
    StartModel(model);
    Control(CAMERA_CODE_ZOOM, 0, 0, 1);
    EXPECT_EQ(Line(7), "FF 01 00 20 00 00 21") << model;
    EXPECT_EQ(daemon->Stop(), 0);
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
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 31),
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 32),  // claims a payload it has not
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 36),
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 44),  // ends before the code
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, -1, 49),  // negative size
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, INT32_MAX, 49),
      with_header(0, CICOMM_PCMD_PTZ, 17, 49),  // no target
      with_header(CICOMM_MAGIC, INT32_MIN, 17, 49),
      with_header(CICOMM_MAGIC, CICOMM_PCMD_PTZ, 17, 65507),
      sim::Bytes(65507, 0xFF),
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
