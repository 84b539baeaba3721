#include "tools/frame_words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "ipc/cicomm.h"
#include "module/micom_firmware.h"
#include "relay/daemon_datagram.h"
#include "relay/ptz_tables.h"
#include "sim/peers.h"
#include "tools/frame_texts.h"

namespace {

using sim::Bytes;
using std::string;
using tools::Direction;
using tools::ExplainedFrame;
using tools::FrameDecoder;
using tools::Protocol;

// Bytes from hexadecimal, e.g. "FF 01".
Bytes Hex(const string& text) {
  Bytes bytes;
  for (size_t at = 0; at < text.size(); at += 3)
    bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(at, 2), nullptr, 16)));
  return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

template <typename Frame>
Bytes Of(const Frame& frame) {
  return Bytes(frame.begin(), frame.end());
}

Bytes Of(const MicomPacket& packet) {
  return Bytes(packet.bytes.begin(), packet.bytes.begin() + packet.size);
}

// "OFFSET+SIZE PROTOCOL VERDICT: WORDS" a line. A run of noise ends with a piece: it is put
// together again, and has no words of its own.
string Text(const std::vector<ExplainedFrame>& frames) {
  string text;
  for (size_t i = 0; i < frames.size();) {
    const ExplainedFrame& frame = frames[i];
    const bool is_noise = frame.protocol == Protocol::kNone;
    size_t size = frames[i++].bytes.size();
    while (is_noise && i < frames.size() && frames[i].protocol == Protocol::kNone)
      size += frames[i++].bytes.size();
    text += std::to_string(frame.offset) + "+" + std::to_string(size) + " " +
            ProtocolName(frame.protocol) + " " + VerdictName(frame.verdict) + ": " +
            (is_noise ? "noise" : frame.words) + "\n";
  }
  return text;
}

std::vector<ExplainedFrame> Decode(const Bytes& bytes, size_t piece,
                                   Protocol protocol = Protocol::kAuto,
                                   Direction direction = Direction::kUnknown) {
  FrameDecoder decoder(protocol, direction);
  std::vector<ExplainedFrame> all;
  for (size_t at = 0; at < bytes.size(); at += piece) {
    const auto some =
        decoder.Feed(std::span(bytes).subspan(at, std::min(piece, bytes.size() - at)));
    all.insert(all.end(), some.begin(), some.end());
  }
  const auto rest = decoder.Flush();
  all.insert(all.end(), rest.begin(), rest.end());
  return all;
}

const string kLeft = "FF 01 00 04 1D 00 22 ";
const string kLeftWords = "pan left at speed 29";
const Bytes kPayload(300, 0x5A);

TEST(FrameWords, ExplainsStreamsInWhateverPieces) {
  constexpr auto kAuto = Protocol::kAuto;
  constexpr auto kTo = Direction::kToDevice;
  constexpr auto kFrom = Direction::kFromDevice;
  const struct {
    const char* legend;
    Bytes bytes;
    string text;
    Protocol protocol = Protocol::kAuto;
    Direction direction = Direction::kUnknown;
  } rows[] = {
      {"unknown command", Hex("FF 01 06 45 00 05 51"),
       "0+7 pelco-d good: extended: unknown command 0x45 with 5, unknown bits 0x06 in command 1\n"},
      {"other receiver", Hex("FF 02 00 12 13 09 30"),
       "0+7 pelco-d good: receiver 2: pan right at speed 19, tilt down at 9\n"},
      {"stop", Hex("FF 01 00 00 00 00 01"), "0+7 pelco-d good: stop\n", kAuto, kTo},
      {"no answer but a frame", Hex("FF 01 01 02 07 00 0B"),
       "0+7 pelco-d good: pan right at speed 7, focus near\n"},
      {"model query", Hex("FF 01 00 00 96 69 00"), "0+7 sd-module good: query: model\n"},
      {"model 0", Hex("FF 01 00 00 00 00 01"), "0+7 sd-module good: reply: model 0\n", kAuto,
       kFrom},
      {"HD query", Hex("FF E3 01 00 00 00 00 00 00 E3"),
       "0+10 hd-micom good: query: firmware version\n"},
      {"HD answer", Hex("FF E0 01 00 00 00 46 00 00 26"),
       "0+10 hd-micom good: answer: sensor 0x46 (Sony 2M)\n"},
      {"HD answer of 0", Hex("FF 5C 01 00 00 00 00 00 00 5C"),
       "0+10 hd-micom good: answer: resolution flag 0\n", kAuto, kFrom},
      {"HD by choice", Hex("FF 4B 02 01 00 00 03 00 00 50"), "0+10 hd-micom good: menu key: left\n",
       Protocol::kHd},
      {"HD data that ends a Pelco-D frame", Hex("FF 21 02 00 00 00 23 00 00 45"),
       "0+10 hd-micom good: module setting: 35\n"},
      {"the same bytes as Pelco-D", Hex("FF 21 02 00 00 00 23 00 00 45"),
       "0+7 pelco-d good: receiver 33: unknown bits 0x02 in command 1\n7+3 none noise: noise\n",
       Protocol::kPelco},
      {"lens move", Hex("A5 40 0C 00 78 69 A5 40 0B FF FC EB"),
       "0+6 lens good: zoom motor: move +120 steps\n6+6 lens good: P-iris: move -4 steps "
       "(closes)\n"},
      {"unknown register", Hex("A5 40 12 03 04 FE"), "0+6 lens good: register 0x12 write 0x0304\n"},
      {"micom's question", Hex("A5 40 30 00 00 15"),
       "0+6 lens good: the micom asks for sensor and lens model\n", kAuto, kFrom},
      {"answer to it", Hex("A5 40 30 03 02 1A"),
       "0+6 lens good: lens model: sensor code 3, lens model code 2\n", kAuto, kTo},
      {"firmware update",
       Hex("DC 12") + Of(MicomHeaderPacket(300)) + Hex("33") +
           Of(MicomDataPacket(std::span(kPayload).first(256))) + Hex("15") +
           Of(MicomDataPacket(std::span(kPayload).first(44))) + Hex("33") +
           Of(MicomTailPacket(kPayload)) + Hex("33"),
       "0+2 firmware good: the micom is ready for the firmware\n"
       "2+8 firmware good: header packet: 300 bytes of firmware follow\n"
       "10+1 firmware good: packet accepted\n"
       "11+262 firmware good: data packet: 256 bytes of firmware\n"
       "273+1 firmware good: packet not accepted: answer 0x15\n"
       "274+50 firmware good: data packet: 44 bytes of firmware\n"
       "324+1 firmware good: packet accepted\n"
       "325+7 firmware good: tail packet: the firmware's checksum is 0x3322\n"
       "332+1 firmware good: packet accepted\n"},
      {"answer by choice", Hex("33"), "0+1 firmware good: packet accepted\n", Protocol::kFirmware,
       kFrom},
      {"noise around", Hex("00 41 " + kLeft + "FF FF A5 " + kLeft + "FF"),
       "0+2 none noise: noise\n2+7 pelco-d good: " + kLeftWords + "\n9+3 none noise: noise\n" +
           "12+7 pelco-d good: " + kLeftWords + "\n19+1 none noise: noise\n"},
      {"Pelco-D checksum", Hex("FF 01 00 04 1D 00 23 " + kLeft),
       "0+7 pelco-d bad-checksum: checksum wrong (0x23, should be 0x22): " + kLeftWords +
           "\n7+7 pelco-d good: " + kLeftWords + "\n"},
      {"packet checksum", Hex("A0 00 01 00 00 AF 84 C2"),
       "0+8 firmware bad-checksum: checksum wrong (0xC284, should be 0xC184): header packet: 256 "
       "bytes of firmware follow\n"},
      {"end lost", Hex("FF 01 00 " + kLeft + "A5 40 0C " + kLeft),
       "0+3 pelco-d cut-off: cut off after 3 bytes\n3+7 pelco-d good: " + kLeftWords +
           "\n10+3 lens cut-off: cut off after 3 bytes\n13+7 pelco-d good: " + kLeftWords + "\n"},
      {"end never came", Hex("FF 4B 02 00 00"), "0+5 hd-micom cut-off: cut off after 5 bytes\n"},
      {"packet longer than packets are", Hex("A0 02 01 00 AE 00 00"), "0+7 none noise: noise\n"},
  };
  for (const auto& row : rows) {
    for (const size_t piece : {row.bytes.size(), size_t{1}, size_t{2}, size_t{3}, size_t{5}}) {
      EXPECT_EQ(Text(Decode(row.bytes, piece, row.protocol, row.direction)), row.text)
          << row.legend << " in pieces of " << piece;
    }
  }
}

// The other half of an update: the answers only.
TEST(FrameWords, TakesOneByteForTheAnswerThatIsDue) {
  FrameDecoder answers(Protocol::kAuto, Direction::kFromDevice);
  answers.ExpectFirmwareAnswer();
  EXPECT_EQ(Text(answers.Feed(Hex("33 33"))),
            "0+1 firmware good: packet accepted\n1+1 none noise: noise\n");
}

TEST(FrameWords, ExplainsDatagramsAndWhatTheyCarry) {
  const CameraControl stray = {
      .target = 3, .code = 0x1012, .first = 64, .second = -127, .third = 0};
  const Bytes serial = Hex("50 54 50 52 50 32 33 32 07 00 00 00 01 00 00 00 FF 01 00 00 00 12 13");
  Bytes cut_serial = serial;
  cut_serial.resize(20);
  Bytes long_serial = serial;
  long_serial[8] = 65;
  Bytes cut_command = sim::CameraControlPacket(stray);
  cut_command.resize(40);
  const struct {
    const char* legend;
    Protocol protocol;
    Bytes bytes;
    string text;
  } rows[] = {
      {"serial data", Protocol::kAuto, serial + serial,
       "0+16 serial-data good: 7 bytes from the line\n16+7 sd-module good: reply: model 18\n"
       "23+16 serial-data good: 7 bytes from the line\n39+7 sd-module good: reply: model 18\n"},
      {"cut", Protocol::kAuto, cut_serial,
       "0+16 serial-data cut-off: bytes from the line: it announces 7 bytes, 4 are there\n"
       "16+4 sd-module cut-off: cut off after 4 bytes\n"},
      {"too long", Protocol::kAuto, long_serial,
       "0+23 serial-data malformed: no serial data datagram: it announces 65 bytes, not 1 to 64\n"},
      {"write", Protocol::kAuto, sim::DaemonDatagram(RS232_UDP_WRITE, Hex(kLeft)),
       "0+2 daemon good: write 7 bytes to the line\n2+7 pelco-d good: " + kLeftWords + "\n"},
      {"unknown code", Protocol::kDaemon, Hex("02 70 41"),
       "0+3 daemon malformed: code 0x7002, which is not known: it is ignored\n"},
      {"for another target", Protocol::kAuto, sim::CameraControlPacket(stray),
       "0+49 command good: camera control 0x1012: joystick, pan 64, tilt -127, zoom 0; target 3, "
       "not 4: the daemon ignores it\n"},
      {"cut command", Protocol::kAuto, cut_command,
       "0+40 command cut-off: camera control, whose record is cut off; it announces 17 bytes, 8 "
       "are there\n"},
      {"focus query", Protocol::kAuto,
       sim::CommandPacket(CAMERA_QUERY, Bytes{2, 0, 0, 0, 0x39, 0x30, 0, 0, 0, 0, 0, 0}),
       "0+44 command good: camera query: focus measure 12345\n"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(Text(tools::ExplainBytes(row.bytes, row.protocol)), row.text) << row.legend;

  string problem;
  EXPECT_EQ(tools::SerialDataOf(serial, &problem)->size(), 7U);
  EXPECT_FALSE(tools::SerialDataOf(serial + serial, &problem).has_value());
  EXPECT_EQ(problem, "it announces 7 bytes, 30 are there");
}

// Streams of the bytes that frames are made of, damaged and cut as it comes.
TEST(FrameWords, LosesNoByteAndDependsOnNoPiece) {
  const string parts[] = {kLeft,
                          "FF 01 00 01",
                          "FF 4B 02 00 00 00 03 00 00 4F",
                          "A5 40 0B FF FC EB",
                          "FF 01 00 00 00 12 13",
                          "DC 12",
                          "33",
                          "A0 02 00",
                          "FF",
                          "00 41",
                          sim::Hex(Of(MicomHeaderPacket(2))),
                          sim::Hex(Of(MicomDataPacket(Hex("FF 01"))))};
  std::minstd_rand random(1);
  const auto below = [&random](size_t limit) { return static_cast<size_t>(random()) % limit; };
  for (int round = 0; round < 3000; ++round) {
    Bytes stream;
    for (size_t i = below(6) + 1; i > 0; --i) {
      Bytes part = Hex(parts[below(std::size(parts))]);
      if (below(4) == 0) part[below(part.size())] ^= static_cast<uint8_t>(1 << below(8));
      if (below(4) == 0) part.resize(below(part.size()) + 1);
      stream = stream + part;
    }
    const auto direction = static_cast<Direction>(below(3));
    const auto protocol = static_cast<Protocol>(below(6));
    const auto whole = Decode(stream, stream.size(), protocol, direction);
    Bytes joined;
    for (const ExplainedFrame& frame : whole) {
      ASSERT_EQ(frame.offset, joined.size()) << sim::Hex(stream);
      joined = joined + frame.bytes;
    }
    ASSERT_EQ(joined, stream);
    for (const size_t piece : {size_t{1}, size_t{2}, size_t{5}})
      ASSERT_EQ(Text(Decode(stream, piece, protocol, direction)), Text(whole)) << sim::Hex(stream);
  }
}

// The speed dome has them all.
TEST(FrameWords, KnowsEveryFrameOfTheRelayedModels) {
  for (const PtzRow& row : PtzTableForModel("QB-620")) {
    const CameraControl control = {4, row.code, 1, 1, 1};
    EXPECT_EQ(tools::CameraControlText(control).find("known"), string::npos) << row.code;
    const PtzSequence sequence = PtzTranslate(PtzTableForModel("QB-620"), control);
    for (const PtzStep& step :
         std::span(sequence.steps).first(static_cast<size_t>(sequence.count))) {
      const string text = Text(Decode(Of(step.frame), step.frame.size()));
      EXPECT_TRUE(text.starts_with("0+7 pelco-d good: ")) << text;
      EXPECT_EQ(text.find("known"), string::npos) << text;
    }
  }
}

}  // namespace
