// The SD module mode of the real daemon: frames for keys and zoom, replies, the information file.
#include <sys/mount.h>

#include "sim/sd_module.h"
#include "tests/system/module_fixture.h"

namespace {

using sim::Bytes;
using sim::milliseconds;

std::string SdInfo(const std::string& model) {
  return "VERSION=0.0\nMODEL=" + model + "\nRESOLUTION=sd\n";
}

using ModuleSd = ModuleTest;

// A stop follows at once, not after the pause that heads get. Nothing is known of a module that
// never answered, and that ends nothing.
TEST_F(ModuleSd, SilentModuleIsDrivenWithoutPauses) {
  StartModel("QB-210");
  for (int i = 0; i < 3; ++i) {
    Control(CAMERA_CODE_UP);
    const auto arrivals = line.ReceiveFrames(2, 7);
    ASSERT_EQ(arrivals.size(), 2U);
    EXPECT_LT(arrivals[1].time - arrivals[0].time, milliseconds(90));
  }
  EXPECT_EQ(Info(), "");
}

TEST_F(ModuleSd, RepliesRenewTheInformationFile) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartModel("QB-210", {"1"});
  const Bytes frame = {0xFF, 0x01, 0x00, 0x00, 0x00, 0x12, 0x13};
  const struct {
    const char* legend;
    std::vector<Bytes> reads;  // what the daemon gets in one read each
    std::string info;
  } rows[] = {
      {"byte by byte", {{0xFF}, {1}, {0}, {0}, {0}, {7}, {8}}, SdInfo("7")},
      {"joined", {{0xFF, 1, 0, 0, 0, 0x12, 0x13, 0xFF, 1, 0, 0, 0, 0x34, 0x35}}, SdInfo("52")},
      {"joined and split",
       {{0xFF, 1, 0, 0, 0, 0x12, 0x13, 0xFF, 1}, {0, 0, 0, 0x34, 0x35}},
       SdInfo("52")},
      {"noise before", {{0x00, 0x7F, 0xFE}, frame}, SdInfo("18")},
      {"wrong checksum", {{0xFF, 1, 0, 0, 0, 200, 0}}, SdInfo("200")},
      {"no frame", {{0x01, 0x00, 0x00, 0x00, 0x12, 0x13, 0x14}}, ""},
      // The sync byte of the next frame falls into the one that lost its end.
      {"end lost", {{0xFF, 1, 0, 0}, frame}, SdInfo("1")},
      {"model code FF", {{0xFF, 1, 0, 0, 0, 0xFF, 0}}, SdInfo("255")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    unlink(kInfoPath);
    for (const Bytes& read : row.reads) {
      line.Send(read);
      const auto datagram = data.Receive();
      ASSERT_TRUE(datagram.has_value());
      // Sent once the bytes are dealt with; the file is then as it should be.
      EXPECT_EQ(sim::DecodeSerialData(*datagram), read);
    }
    EXPECT_EQ(Info(), row.info);
  }
  const std::string output = daemon->Output();
  EXPECT_NE(output.find("### model 12\n### model 34\n"), std::string::npos) << output;
  EXPECT_NE(output.find("### model FF\n"), std::string::npos) << output;
}

TEST_F(ModuleSd, DrivesAModule) {
  StartWith("QB-220", std::make_unique<sim::SdModule>(uint8_t{0x2A}, sim::Clock::now()));
  ASSERT_TRUE(server->ServeUntil([this] { return Info() == SdInfo("42"); }));
  for (const uint16_t code : {CAMERA_CODE_MENU, CAMERA_CODE_DOWN, CAMERA_CODE_LEFT})
    Control(code);
  EXPECT_TRUE(server->ServeUntil([this] {
    return far_end->Describe().find("menu at white balance 4") != std::string::npos;
  })) << far_end->Describe();
  for (const int direction : {1, 0}) {
    Control(CAMERA_CODE_ZOOM, 0, 0, direction);
    EXPECT_TRUE(server->ServeUntil([&] { return far_end->IsMoving() == (direction != 0); }));
  }
}

TEST_F(ModuleSd, FullDiskCostsTheFileOnly) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartModel("QB-210");
  ASSERT_EQ(mount("tmpfs", "/var/nvt", "tmpfs", 0, "size=4k"), 0);
  sim::WriteTextFile("/var/nvt/filler", std::string(4096, 'x'));
  const Bytes frame = {0xFF, 0x01, 0x00, 0x00, 0x00, 0x12, 0x13};
  line.Send(frame);
  ASSERT_TRUE(data.Receive().has_value());
  EXPECT_EQ(Info(), "");
  Control(CAMERA_CODE_ZOOM, 0, 0, 1);
  EXPECT_EQ(Line(7), "FF 01 00 20 00 00 21");
  unlink("/var/nvt/filler");
  line.Send(frame);
  ASSERT_TRUE(data.Receive().has_value());
  EXPECT_EQ(Info(), SdInfo("18"));
  umount2("/var/nvt", MNT_DETACH);
}

}  // namespace
