// The HD module mode of the real daemon: start-up queries, the information file, settings.
#include "tests/system/module_fixture.h"

namespace {

using sim::Bytes;
using sim::HdIdentity;
using sim::milliseconds;

constexpr char kVersionQuery[] = "FF E3 01 00 00 00 00 00 00 E3";
constexpr char kFlagQuery[] = "FF 5C 01 00 00 00 00 00 00 5C";
constexpr char kSensorQuery[] = "FF E0 01 00 00 00 00 00 00 E0";

std::string HdInfo(const std::string& version, const std::string& model,
                   const std::string& resolution) {
  return "VERSION=" + version + "\nMODEL=" + model + "\nRESOLUTION=" + resolution + "\n";
}

Bytes HdAnswer(uint8_t command, uint8_t value) {
  return {0xFF, command, 1, 0, 0,
          0,    value,   0, 0, static_cast<uint8_t>((0xFF + command + 1 + value) & 0xFF)};
}

class ModuleHd : public ModuleTest {
 protected:
  // Leaves the first query unanswered.
  void SetUp() override {
    ModuleTest::SetUp();
    config.model = "QB-310";
  }

  // A control code that arrives shows that the queries are done.
  void ExpectServing() {
    Control(CAMERA_CODE_RIGHT);
    EXPECT_EQ(Line(10), "FF 4B 02 00 00 00 04 00 00 50");
  }
};

TEST_F(ModuleHd, BytesAfterTheQueriesDoNotRewriteTheFile) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartModel("QB-310");
  ExpectServing();
  const Bytes frame = HdAnswer(0xE3, 0x45);
  line.Send(frame);
  EXPECT_EQ(sim::DecodeSerialData(data.Receive().value_or(Bytes{})), frame);
  EXPECT_EQ(Info(), HdInfo("0.0", "Unknown", "1080p"));
}

TEST_F(ModuleHd, ReportsModelsAndResolutions) {
  const std::tuple<const char*, HdIdentity, std::string> rows[] = {
      {"QB-310", {0x10, 0, 0x16}, HdInfo("1.0", "Panasonic 1.3M", "1280*720")},
      {"QB-320", {0x21, 1, 0x16}, HdInfo("2.1", "Panasonic 1.3M", "1280*1024")},
      {"QB-330", {0x00, 0, 0x26}, HdInfo("0.0", "Panasonic 2M", "1080p")},
      {"QB-340", {0xFE, 1, 0x36}, HdInfo("15.14", "OmniVision 2M", "720p")},
      {"QB-350", {0x12, 0x80, 0x46}, HdInfo("1.2", "Sony 2M", "720p")},
      {"QB-310", {0x12, 0, 0x55}, HdInfo("1.2", "Unknown", "1080p")},
      {"QB-310", {0xFF, 0, 0x16}, ""},
      {"QB-310", {0x10, 0xFF, 0x16}, ""},
      {"QB-310", {0x10, 0, 0xFF}, ""},
  };
  for (const auto& [model, identity, info] : rows) {
    SCOPED_TRACE(info + std::to_string(identity.version));
    unlink(kInfoPath);
    StartMicom({}, identity, model);
    EXPECT_EQ(Info(), info);  // "" if a value is missing
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

// Independent of the split into reads; command and checksum are not checked.
TEST_F(ModuleHd, ReadsAnswersByTheirPositionInTheStream) {
  Bytes damaged = HdAnswer(0xE3, 0x31);
  damaged[1] = 0x00;
  damaged[9] ^= 0xFF;
  const Bytes flag = HdAnswer(0x5C, 0x01);
  const Bytes sensor = HdAnswer(0xE0, 0x46);
  for (const bool is_late : {false, true}) {
    // Four extra bytes shift each value into the read of the next answer.
    Bytes stream = is_late ? Bytes{1, 2, 3, 4} : Bytes{};
    for (const Bytes& answer : {damaged, flag, sensor})
      stream.insert(stream.end(), answer.begin(), answer.end());
    Start({"1"});
    EXPECT_EQ(Line(10), kVersionQuery);
    line.Send({stream.data(), 6});
    ASSERT_TRUE(WaitOutput("  RECV    6: "));  // else one read would return both parts
    line.Send({stream.data() + 6, stream.size() - 6});
    EXPECT_EQ(Line(20), std::string(kFlagQuery) + " " + kSensorQuery);
    ExpectServing();
    EXPECT_EQ(Info(),
              is_late ? HdInfo("0.1", "Unknown", "720p") : HdInfo("3.1", "Sony 2M", "720p"));
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

// Three queries that each time out after three to four seconds.
TEST_F(ModuleHd, IgnoresAnswersTooShortForAValue) {
  const std::string earlier = HdInfo("1.0", "Sony 2M", "720p");
  Install();
  sim::WriteTextFile(kInfoPath, earlier);
  Start({"1"});
  const std::pair<const char*, Bytes> rows[] = {
      {kVersionQuery, {0xFF, 0xE3, 0x01, 0x11, 0x12, 0x13}},
      {kFlagQuery, {0xFF, 0x5C, 0x01, 0x11, 0x12, 0x13, 0x07}},
      {kSensorQuery, {}},
  };
  const auto asked = sim::Clock::now();
  for (const auto& [query, answer] : rows) {
    EXPECT_EQ(Line(10), query);
    line.Send(answer);
  }
  ExpectServing();
  EXPECT_GE(sim::Clock::now() - asked, milliseconds(3 * 2990));
  EXPECT_LE(sim::Clock::now() - asked, milliseconds(3 * 4500));
  EXPECT_NE(daemon->Output().find("# FF, 07, FF\n"), std::string::npos) << daemon->Output();
  EXPECT_EQ(Info(), earlier);
}

}  // namespace
