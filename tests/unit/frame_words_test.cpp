#include "tools/frame_words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ipc/cicomm.h"
#include "module/micom_firmware.h"
#include "relay/daemon_datagram.h"
#include "sim/peers.h"
#include "tools/parse.h"

namespace {

using sim::Bytes;
using std::string;
using tools::ExplainedFrame;
using tools::FrameDecoder;
using tools::Protocol;

// Converts hexadecimal text, e.g. "FF 01".
Bytes Hex(const string& text) {
  Bytes bytes;
  tools::ReadHexBytes(text, &bytes);
  return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Bytes Of(const MicomPacket& packet) {
  return Bytes(packet.bytes.begin(), packet.bytes.begin() + packet.size);
}

// One line "OFFSET+SIZE PROTOCOL VERDICT: WORDS" per frame. Merges runs of noise, which end with
// each piece and have no words.
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

std::vector<ExplainedFrame> Decode(const Bytes& bytes, size_t piece) {
  FrameDecoder decoder(Protocol::kAuto, tools::Direction::kUnknown);
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
const Bytes kPayload(44, 0x5A);

TEST(FrameWords, ExplainsStreamsSplitAnywhere) {
  const std::pair<Bytes, string> rows[] = {
      {Hex("FF 21 02 00 00 00 23 00 00 45"), "0+10 hd-micom good: module setting: 35\n"},
      {Hex("DC 12") + Of(MicomHeaderPacket(44)) + Hex("33") + Of(MicomDataPacket(kPayload)) +
           Hex("15") + Of(MicomTailPacket(kPayload)),
       "0+2 firmware good: micom ready for the firmware\n"
       "2+8 firmware good: header packet: 44 bytes of firmware follow\n"
       "10+1 firmware good: packet accepted\n"
       "11+50 firmware good: data packet: 44 bytes of firmware\n"
       "61+1 firmware good: packet not accepted: answer 0x15\n"
       "62+7 firmware good: tail packet: the firmware's checksum is 0x6B58\n"},
      {Hex("00 41 " + kLeft + "FF FF A5 " + kLeft + "FF"),
       "0+2 none noise: noise\n2+7 pelco-d good: " + kLeftWords + "\n9+3 none noise: noise\n" +
           "12+7 pelco-d good: " + kLeftWords + "\n19+1 none noise: noise\n"},
      {Hex("FF 01 00 04 1D 00 23 " + kLeft),
       "0+7 pelco-d bad-checksum: wrong checksum (0x23, expected 0x22): " + kLeftWords +
           "\n7+7 pelco-d good: " + kLeftWords + "\n"},
      {Hex("FF 01 00 " + kLeft + "A5 40 0C " + kLeft),
       "0+3 pelco-d cut-off: cut off after 3 bytes\n3+7 pelco-d good: " + kLeftWords +
           "\n10+3 lens cut-off: cut off after 3 bytes\n13+7 pelco-d good: " + kLeftWords + "\n"},
  };
  for (const auto& [bytes, text] : rows) {
    for (const size_t piece : {bytes.size(), size_t{1}, size_t{3}})
      EXPECT_EQ(Text(Decode(bytes, piece)), text) << piece;
  }
}

TEST(FrameWords, ExplainsDatagramsAndTheirPayload) {
  const Bytes serial = Hex("50 54 50 52 50 32 33 32 07 00 00 00 01 00 00 00 FF 01 00 00 00 12 13");
  Bytes cut_command = sim::CameraControlPacket(sim::Control(0x1012, 64, -127));
  cut_command.resize(40);
  const std::pair<Bytes, string> rows[] = {
      {serial + serial,
       "0+16 serial-data good: 7 bytes from the line\n16+7 sd-module good: reply: model 18\n"
       "23+16 serial-data good: 7 bytes from the line\n39+7 sd-module good: reply: model 18\n"},
      {cut_command,
       "0+40 command cut-off: camera control, incomplete; it announces 17 bytes, 8 "
       "are there\n"},
      {sim::CameraControlPacket(sim::Control(0x1021, -1)) +
           sim::CameraControlPacket(sim::Control(0x1012, 0, -64)),
       "0+49 command good: camera control 0x1021: preset go 255\n"
       "49+49 command good: camera control 0x1012: tilt-down --speed 64\n"},
      {sim::CommandPacket(CAMERA_QUERY, Bytes{2, 0, 0, 0, 0x39, 0x30, 0, 0, 0, 0, 0, 0}),
       "0+44 command good: camera query: focus measure 12345\n"},
  };
  for (const auto& [bytes, text] : rows)
    EXPECT_EQ(Text(tools::ExplainBytes(bytes, Protocol::kAuto)), text);
}

}  // namespace
