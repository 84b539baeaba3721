// The HD module mode of the real daemon: start queries, the information file, settings.
#include "sim/hd_micom.h"
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

class ModuleHd : public ModuleTest {
 protected:
  void StartQueries(std::vector<std::string> arguments = {}) {
    config.model = "QB-310";
    Start(std::move(arguments));
  }

  // Answers the start queries by hand.
  void Answer(uint8_t version, uint8_t flag, uint8_t sensor) {
    EXPECT_EQ(Line(10), kVersionQuery);
    line.Send(HdAnswer(0xE3, version));
    EXPECT_EQ(Line(10), kFlagQuery);
    line.Send(HdAnswer(0x5C, flag));
    EXPECT_EQ(Line(10), kSensorQuery);
    line.Send(HdAnswer(0xE0, sensor));
  }

  // Once a control code comes through, the mode is past its queries.
  void ExpectServing() {
    Control(CAMERA_CODE_RIGHT);
    EXPECT_EQ(Line(10), "FF 4B 02 00 00 00 04 00 00 50");
  }

  size_t ReadsTraced() const {
    const std::string output = daemon->Output();
    size_t count = 0;
    for (size_t at = 0; (at = output.find("  RECV ", at)) != std::string::npos; ++at) {
      // A read that timed out is traced as well, with a negative length.
      if (output.substr(at + 7, 4).find('-') == std::string::npos) ++count;
    }
    return count;
  }
};

TEST_F(ModuleHd, ControlCodesByteForByte) {
  StartQueries();
  Answer(0x10, 0, 0x16);
  const struct {
    const char* legend;
    uint16_t code;
    int first;
    int third;
    const char* frame;  // "": none
  } rows[] = {
      {"menu", 0x2000, 9, 9, "FF 4B 02 00 00 00 00 00 00 4C"},
      {"enter", 0x2005, 9, 9, "FF 4B 02 00 00 00 00 00 00 4C"},
      {"up", 0x2007, 9, 9, "FF 4B 02 00 00 00 01 00 00 4D"},
      {"down", 0x2008, 9, 9, "FF 4B 02 00 00 00 02 00 00 4E"},
      {"left", 0x2009, 9, 9, "FF 4B 02 00 00 00 03 00 00 4F"},
      {"right", 0x200A, 9, 9, "FF 4B 02 00 00 00 04 00 00 50"},
      {"tele", 0x2002, -1, 1, "FF 41 02 00 00 00 01 00 00 43"},
      {"wide", 0x2002, 1, -1, "FF 41 02 00 00 00 02 00 00 44"},
      {"stop", 0x2002, 1, 0, "FF 41 02 00 00 00 00 00 00 42"},
      {"focus one way", 0x2001, 127, -1, "FF 41 02 00 00 00 18 00 00 5A"},
      {"focus the other", 0x2001, -128, 1, "FF 41 02 00 00 00 14 00 00 56"},
      {"focus stop", 0x2001, 0, 1, "FF 41 02 00 00 00 00 00 00 42"},
      {"focus search", 0x1202, 9, 9, "FF 41 02 00 00 00 03 00 00 45"},
      {"setting", 0x1093, 5, 9, "FF 21 02 00 00 00 05 00 00 27"},
      {"setting of a high byte", 0x1093, -2, 9, "FF 21 02 00 00 00 FE 00 00 20"},
      {"setting 0", 0x1093, 0, 7, "FF 21 02 00 00 00 00 00 00 22"},
      {"setting without a value", 0x1093, -1, 9, ""},
      {"not known", 0x2003, 1, 1, ""},
      {"not known here", 0x1020, 1, 1, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    Control(row.code, row.first, 0, row.third);
    EXPECT_EQ(Line(*row.frame == '\0' ? 0 : 10), row.frame);
  }
  ExpectLineQuiet();
  EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(ModuleHd, BytesAfterTheQueriesPassAndRewriteNothing) {
  sim::UdpPeer data(SERIAL_DATA_PORT);
  StartQueries({"1"});
  Answer(0x10, 0, 0x16);
  ExpectServing();
  const std::string info = HdInfo("1.0", "Panasonic 1.3M", "1280*720");
  EXPECT_EQ(Info(), info);
  EXPECT_NE(daemon->Output().find("# 10, 00, 16\n"), std::string::npos) << daemon->Output();
  sim::PtzClient client(config.ptz_port);
  client.Send(Bytes{0x77});
  EXPECT_EQ(Line(1), "77");
  const Bytes frame = HdAnswer(0xE3, 0x45);
  line.Send(frame);
  EXPECT_EQ(client.Receive(frame.size()), frame);
  const auto datagram = data.Receive();
  ASSERT_TRUE(datagram.has_value());
  EXPECT_EQ(sim::DecodeSerialData(*datagram), frame);
  EXPECT_EQ(Info(), info);
  SendUdp(sim::DaemonDatagram(RS232_UDP_STOP));
  ExpectEnd(0);
}

TEST_F(ModuleHd, ModelsAndResolutions) {
  const struct {
    const char* model;
    HdIdentity identity;
    std::string info;  // "": none is written
  } rows[] = {
      {"QB-310", {0x10, 0, 0x16}, HdInfo("1.0", "Panasonic 1.3M", "1280*720")},
      {"QB-320", {0x21, 1, 0x16}, HdInfo("2.1", "Panasonic 1.3M", "1280*1024")},
      {"QB-330", {0x00, 0, 0x26}, HdInfo("0.0", "Panasonic 2M", "1080p")},
      {"QB-340", {0xFE, 1, 0x26}, HdInfo("15.14", "Panasonic 2M", "720p")},
      {"QB-350", {0x9A, 0, 0x36}, HdInfo("9.10", "OmniVision 2M", "1080p")},
      {"QB-310", {0x12, 0x80, 0x36}, HdInfo("1.2", "OmniVision 2M", "720p")},
      {"QB-310", {0x12, 0, 0x46}, HdInfo("1.2", "Sony 2M", "1080p")},
      {"QB-310", {0x12, 1, 0x46}, HdInfo("1.2", "Sony 2M", "720p")},
      {"QB-310", {0x12, 0, 0x55}, HdInfo("1.2", "Unknown", "1080p")},
      {"QB-310", {0x12, 2, 0x00}, HdInfo("1.2", "Unknown", "720p")},
      {"QB-310", {0xFF, 0, 0x16}, ""},
      {"QB-310", {0x10, 0xFF, 0x16}, ""},
      {"QB-310", {0x10, 0, 0xFF}, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.info + std::to_string(row.identity.version));
    unlink(kInfoPath);
    StartWith(row.model, std::make_unique<sim::HdMicom>(
                             row.identity, sim::LoaderSetup{}, [this] { return line.Settings(); },
                             sim::Clock::now()));
    Control(CAMERA_CODE_UP);
    ASSERT_TRUE(ServeUntilWords("asked for its sensor\nup key\n")) << words;
    EXPECT_EQ(Info(), row.info);
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

TEST_F(ModuleHd, AnswersInPiecesJoinedAndDamaged) {
  const Bytes version = HdAnswer(0xE3, 0x31);
  const Bytes flag = HdAnswer(0x5C, 0x01);
  const Bytes sensor = HdAnswer(0xE0, 0x46);
  const auto join = [](std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts)
      all.insert(all.end(), part.begin(), part.end());
    return all;
  };
  const auto part = [](const Bytes& bytes, int from, int to) {
    return Bytes(bytes.begin() + from, bytes.begin() + to);
  };
  Bytes bad = version;
  bad[9] ^= 0xFF;
  bad[1] = 0x00;
  const struct {
    const char* legend;
    std::vector<Bytes> to_version;  // sent one after the other, each in a read of its own
    std::vector<Bytes> to_flag;
    std::vector<Bytes> to_sensor;
    const char* traced;
    std::string info;
  } rows[] = {
      {"whole", {version}, {flag}, {sensor}, "# 31, 01, 46\n", HdInfo("3.1", "Sony 2M", "720p")},
      {"split before the value",
       {part(version, 0, 6), part(version, 6, 10)},
       {part(flag, 0, 1), part(flag, 1, 9), part(flag, 9, 10)},
       {sensor},
       "# 31, 01, 46\n",
       HdInfo("3.1", "Sony 2M", "720p")},
      {"joined",
       {join({version, flag, sensor})},
       {},
       {},
       "# 31, 01, 46\n",
       HdInfo("3.1", "Sony 2M", "720p")},
      {"command and checksum damaged",
       {bad},
       {flag},
       {sensor},
       "# 31, 01, 46\n",
       HdInfo("3.1", "Sony 2M", "720p")},
      // Values are taken by their place: here each falls into the read of the next answer.
      {"four bytes too many before",
       {join({{1, 2, 3, 4}, version})},
       {flag},
       {sensor},
       "# 01, 01, 01\n",
       HdInfo("0.1", "Unknown", "720p")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    unlink(kInfoPath);
    DropLineBytes();
    StartQueries({"1"});
    size_t reads = 0;
    const auto send = [&](const char* query, const std::vector<Bytes>& pieces) {
      EXPECT_EQ(Line(10), query);
      for (const Bytes& piece : pieces) {
        line.Send(piece);
        // The next piece must not join this one.
        ++reads;
        if (&piece != &pieces.back()) {
          ASSERT_TRUE(sim::WaitUntil([&] { return ReadsTraced() >= reads; }));
        }
      }
    };
    send(kVersionQuery, row.to_version);
    send(kFlagQuery, row.to_flag);
    send(kSensorQuery, row.to_sensor);
    ExpectServing();
    EXPECT_NE(daemon->Output().find(row.traced), std::string::npos) << daemon->Output();
    EXPECT_EQ(Info(), row.info);
    EXPECT_EQ(daemon->Stop(), 0);
  }
}

// Three queries of three to four seconds each.
TEST_F(ModuleHd, AnswersTooShortForTheirValueAreNone) {
  const std::string earlier = HdInfo("1.0", "Sony 2M", "720p");
  Install();
  sim::WriteTextFile(kInfoPath, earlier);
  StartQueries({"1"});
  const Bytes six = {0xFF, 0xE3, 0x01, 0x11, 0x12, 0x13};
  const Bytes seven = {0xFF, 0x5C, 0x01, 0x11, 0x12, 0x13, 0x07};
  const struct {
    const char* query;
    Bytes answer;
  } rows[] = {{kVersionQuery, six}, {kFlagQuery, seven}, {kSensorQuery, {}}};
  auto asked = sim::Clock::now();
  for (const auto& row : rows) {
    EXPECT_EQ(Line(10), row.query);
    if (&row != &rows[0]) {
      EXPECT_GE(sim::Clock::now() - asked, milliseconds(2990));
      EXPECT_LE(sim::Clock::now() - asked, milliseconds(4500));
    }
    asked = sim::Clock::now();
    line.Send(row.answer);
  }
  ExpectServing();
  EXPECT_GE(sim::Clock::now() - asked, milliseconds(2990));
  EXPECT_NE(daemon->Output().find("# FF, 07, FF\n"), std::string::npos) << daemon->Output();
  EXPECT_EQ(Info(), earlier);
  EXPECT_EQ(daemon->Stop(), 0);
}

TEST_F(ModuleHd, FullDiskCostsTheFileOnly) {
  StartQueries();
  FullDisk disk("/var/nvt");
  Answer(0x10, 0, 0x16);
  ExpectServing();
  EXPECT_EQ(Info(), "");
  EXPECT_EQ(daemon->Stop(), 0);
}

}  // namespace
