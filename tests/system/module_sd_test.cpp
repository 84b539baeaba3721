// The SD module mode of the real daemon: frames for keys and zoom, replies, the information file.
#include "tests/system/module_fixture.h"

namespace {

using sim::Bytes;
using sim::milliseconds;

std::string SdInfo(const std::string& model) {
  return "VERSION=0.0\nMODEL=" + model + "\nRESOLUTION=sd\n";
}

using ModuleSd = ModuleTest;

// A stop follows at once, without the pause for heads. The mode works without any answer from the
// module.
TEST_F(ModuleSd, DrivesASilentModuleWithoutPauses) {
  StartModel("QB-210");
  for (int i = 0; i < 3; ++i) {
    Control(CAMERA_CODE_UP);
    const auto arrivals = line.ReceiveFrames(2, 7);
    ASSERT_EQ(arrivals.size(), 2U);
    EXPECT_LT(arrivals[1].time - arrivals[0].time, milliseconds(90));
  }
  EXPECT_EQ(Info(), "");
}

TEST_F(ModuleSd, RepliesUpdateTheInformationFile) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartModel("QB-210", {"1"});
  const Bytes frame = {0xFF, 0x01, 0x00, 0x00, 0x00, 0x12, 0x13};
  // The bytes of each read, and the file afterwards.
  const std::pair<std::vector<Bytes>, std::string> rows[] = {
      {{{0xFF}, {1}, {0}, {0}, {0}, {7}, {8}}, SdInfo("7")},
      {{{0xFF, 1, 0, 0, 0, 0x12, 0x13, 0xFF, 1, 0, 0, 0, 0x34, 0x35}}, SdInfo("52")},
      {{{0xFF, 1, 0, 0, 0, 0x12, 0x13, 0xFF, 1}, {0, 0, 0, 0x34, 0x35}}, SdInfo("52")},
      {{{0x00, 0x7F, 0xFE}, frame}, SdInfo("18")},
      {{{0xFF, 1, 0, 0, 0, 200, 0}}, SdInfo("200")},  // wrong checksum
      {{{0x01, 0x00, 0x00, 0x00, 0x12, 0x13, 0x14}}, ""},
      // The sync byte of the next frame completes a truncated one.
      {{{0xFF, 1, 0, 0}, frame}, SdInfo("1")},
      {{{0xFF, 1, 0, 0, 0, 0xFF, 0}}, SdInfo("255")},
  };
  for (const auto& [reads, info] : rows) {
    SCOPED_TRACE(sim::Hex(reads[0]));
    unlink(kInfoPath);
    for (const Bytes& read : reads) {
      line.Send(read);
      // Sent after the bytes are processed, so the file is complete.
      EXPECT_EQ(sim::DecodeSerialData(data.Receive().value_or(Bytes())), read);
    }
    EXPECT_EQ(Info(), info);
  }
  EXPECT_EQ(sim::CountOf("### model 12\n### model 34\n", daemon->Output()), 1U);
}

}  // namespace
