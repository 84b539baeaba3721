// The SD module mode of the real daemon: frames for keys and zoom, replies, the information file.
#include "sim/sd_module.h"

#include <numeric>

#include "tests/system/module_fixture.h"

namespace {

using sim::Bytes;
using sim::milliseconds;

constexpr char kQuery[] = "FF 01 00 00 96 69 00";
constexpr char kStop[] = "FF 01 00 00 00 00 01";

std::string SdInfo(const std::string& model) {
  return "VERSION=0.0\nMODEL=" + model + "\nRESOLUTION=sd\n";
}

class ModuleSd : public ModuleTest {
 protected:
  // Starts the mode and takes the query, without an answer.
  void StartSilent(std::vector<std::string> arguments = {}) {
    config.model = "QB-210";
    Start(std::move(arguments));
    EXPECT_EQ(Line(7), kQuery);
  }
};

TEST_F(ModuleSd, ControlCodesByteForByte) {
  StartSilent();
  const struct {
    const char* legend;
    uint16_t code;
    int first;
    int third;
    std::vector<std::string> frames;
  } rows[] = {
      {"menu", 0x2000, 0, 0, {"FF 01 00 03 00 5F 63", kStop}},
      {"enter", 0x2005, 0, 0, {"FF 01 00 03 00 5F 63", kStop}},
      {"up", 0x2007, 0, 0, {"FF 01 00 08 00 00 09", kStop}},
      {"down", 0x2008, 0, 0, {"FF 01 00 10 00 00 11", kStop}},
      {"left", 0x2009, 0, 0, {"FF 01 00 04 00 00 05", kStop}},
      {"right", 0x200A, 0, 0, {"FF 01 00 02 00 00 03", kStop}},
      {"tele", 0x2002, -9, 5, {"FF 01 00 20 00 00 21"}},
      {"wide", 0x2002, 9, -5, {"FF 01 00 40 00 00 41"}},
      {"zoom stop", 0x2002, 9, 0, {kStop}},
      {"focus is not known", 0x2001, 1, 1, {}},
      {"nor is this", 0x2003, 1, 1, {}},
      {"nor a setting", 0x1093, 1, 1, {}},
      {"nor a preset", 0x1020, 1, 1, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    Control(row.code, row.first, 0, row.third);
    const auto arrivals = line.ReceiveFrames(row.frames.size(), 7);
    ASSERT_EQ(arrivals.size(), row.frames.size());
    for (size_t i = 0; i < arrivals.size(); ++i) {
      EXPECT_EQ(sim::Hex(arrivals[i].bytes), row.frames[i]);
      // A stop follows at once, not after the pause that heads get.
      if (i == 0) continue;
      EXPECT_LT(arrivals[i].time - arrivals[i - 1].time, milliseconds(90));
    }
  }
  ExpectLineQuiet();
  // The module never answered: nothing is known of it, and that ends nothing.
  EXPECT_EQ(Info(), "");
  SendUdp(sim::DaemonDatagram(RS232_UDP_STOP));
  ExpectEnd(0);
}

TEST_F(ModuleSd, RepliesRenewTheInformationFile) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartSilent({"1"});
  const Bytes frame = {0xFF, 0x01, 0x00, 0x00, 0x00, 0x12, 0x13};
  const struct {
    const char* legend;
    std::vector<Bytes> reads;  // what the daemon gets in one read each
    std::string info;
  } rows[] = {
      {"whole", {frame}, SdInfo("18")},
      {"split", {{0xFF, 0x01, 0x00}, {0x00, 0x00, 0x12, 0x13}}, SdInfo("18")},
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
  EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(ModuleSd, RepliesBeyondOneReadGoOnInTheNext) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartSilent();
  Bytes replies;
  for (int i = 0; i < 14; ++i) {
    const Bytes frame = {0xFF, 1, 0, 0, 0, static_cast<uint8_t>(i), 0};
    replies.insert(replies.end(), frame.begin(), frame.end());
  }
  daemon->Signal(SIGSTOP);
  line.Send(replies);
  daemon->Signal(SIGCONT);
  EXPECT_EQ(data.Receive()->size(), 16U + 64U);
  EXPECT_EQ(data.Receive()->size(), 16U + 34U);
  EXPECT_EQ(Info(), SdInfo("13"));
}

TEST_F(ModuleSd, DrivesAModule) {
  for (const char* model : {"QB-210", "QB-220"}) {
    SCOPED_TRACE(model);
    unlink(kInfoPath);
    StartWith(model, std::make_unique<sim::SdModule>(uint8_t{0x2A}, sim::Clock::now()));
    ASSERT_TRUE(server->ServeUntil([&] { return Info() == SdInfo("42"); }));
    const auto shows = [&](const std::string& text) {
      return server->ServeUntil(
          [&] { return far_end->Describe().find(text) != std::string::npos; });
    };
    Control(CAMERA_CODE_MENU);
    EXPECT_TRUE(shows("menu at exposure 5")) << far_end->Describe();
    Control(CAMERA_CODE_DOWN);
    Control(CAMERA_CODE_LEFT);
    EXPECT_TRUE(shows("menu at white balance 4")) << far_end->Describe();
    Control(CAMERA_CODE_UP);
    Control(CAMERA_CODE_UP);
    EXPECT_TRUE(shows("menu at exit")) << far_end->Describe();
    Control(CAMERA_CODE_MENU_ENTER);
    EXPECT_TRUE(shows("menu closed")) << far_end->Describe();
    // Zoom goes on until it is told to stop.
    Control(CAMERA_CODE_ZOOM, 0, 0, 1);
    EXPECT_TRUE(shows("zoom 2."));
    EXPECT_TRUE(far_end->IsMoving());
    Control(CAMERA_CODE_ZOOM, 0, 0, 0);
    EXPECT_TRUE(server->ServeUntil([&] { return !far_end->IsMoving(); }));
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

TEST_F(ModuleSd, FullDiskCostsTheFileOnly) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartSilent();
  FullDisk disk("/var/nvt");
  const Bytes frame = {0xFF, 0x01, 0x00, 0x00, 0x00, 0x12, 0x13};
  line.Send(frame);
  ASSERT_TRUE(data.Receive().has_value());
  EXPECT_EQ(Info(), "");
  Control(CAMERA_CODE_ZOOM, 0, 0, 1);
  EXPECT_EQ(Line(7), "FF 01 00 20 00 00 21");
  disk.MakeRoom();
  line.Send(frame);
  ASSERT_TRUE(data.Receive().has_value());
  EXPECT_EQ(Info(), SdInfo("18"));
  EXPECT_EQ(daemon->Stop(), 0);
}

}  // namespace
