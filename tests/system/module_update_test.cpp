// The firmware update of the real daemon against a loader: whole, disturbed, broken off.
#include <climits>
#include <cstdio>
#include <filesystem>

#include "tests/system/update_fixture.h"

namespace {

using sim::Bytes;
using sim::LoaderFault;
using sim::LoaderSetup;
using sim::LoaderTrouble;
using sim::milliseconds;

constexpr int kForEver = INT_MAX;
// Bound of an update without silence.
constexpr milliseconds kQuickly{4000};
// The wait for one answer that does not come.
constexpr milliseconds kSilenceAtLeast{2990};
constexpr milliseconds kSilenceAtMost{4800};

// The progress lines of an update without a resend.
std::string Progress(size_t payload) {
  std::string lines;
  for (size_t accepted = 0; accepted < payload;) {
    accepted = std::min(payload, accepted + 256);
    char line[64];
    snprintf(line, sizeof(line), "* write %3zu%%, retry[1 / 20]\n", accepted * 100 / payload);
    lines += line;
  }
  return lines;
}

class ModuleUpdate : public UpdateTest {
 protected:
  // Runs one update and returns how long it took.
  milliseconds Run(size_t payload, LoaderSetup setup, milliseconds limit) {
    StartMicom(std::move(setup));
    WriteImage(Payload(payload));
    const auto begin = sim::Clock::now();
    EXPECT_TRUE(OrderUpdate(limit).has_value()) << Output() << words;
    return std::chrono::duration_cast<milliseconds>(sim::Clock::now() - begin);
  }

  void ExpectStored(size_t payload) {
    ASSERT_NE(Loader(), nullptr);
    EXPECT_TRUE(Loader()->IsComplete()) << Loader()->Describe();
    EXPECT_TRUE(Loader()->Firmware() == Payload(payload));
  }
};

TEST_F(ModuleUpdate, EveryPayloadArrivesWhole) {
  for (const size_t payload : {0U, 1U, 255U, 256U, 257U, 300U, 100'000U}) {
    SCOPED_TRACE(payload);
    Run(payload, {}, milliseconds(30'000));
    ExpectStored(payload);
    EXPECT_EQ(Output(), Said(kAcknowledged + Progress(payload) + "end\n"));
    // The line stays as the loader had it.
    const termios settings = line.Settings();
    EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B115200));
    EXPECT_EQ(settings.c_cflag & (CSIZE | PARENB | CSTOPB), static_cast<tcflag_t>(CS8));
  }
}

TEST_F(ModuleUpdate, PacketsByteForByte) {
  // By hand: nothing of the bench's own loader is trusted here.
  StartModel("QB-310");
  const Bytes letters(257, 'P');
  WriteImage(letters);
  SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  EXPECT_EQ(Line(10), "FF FD 02 00 00 00 00 00 00 FE");
  ASSERT_TRUE(sim::WaitUntil([&] {
    const termios settings = line.Settings();
    return cfgetospeed(&settings) == B115200;
  }));
  line.Send(Bytes{0xDC, 0x12});
  EXPECT_EQ(Line(8), "A0 01 01 00 00 AF C0 CA");
  line.Send(Bytes{0x33});
  const Bytes packet = line.Receive(262);
  ASSERT_EQ(packet.size(), 262U);
  EXPECT_EQ(sim::Hex({packet.data(), 4}), "A0 00 01 50");
  EXPECT_EQ(sim::Hex({packet.data() + 258, 4}), "50 AF 9F 68");
  line.Send(Bytes{0x33});
  EXPECT_EQ(Line(7), "A0 01 00 50 AF 75 78");
  line.Send(Bytes{0x33});
  EXPECT_EQ(Line(7), "A0 02 23 79 AF CC 45");
  line.Send(Bytes{0x33});
  EXPECT_TRUE(manager.Receive().has_value());
}

// --- Images -----------------------------------------------------------------------------------

TEST_F(ModuleUpdate, ImagesThatAreNoneLeaveTheMicomAlone) {
  const struct {
    const char* legend;
    std::optional<size_t> size;  // of the whole file
    std::string output;
    std::string errors;
  } rows[] = {
      {"missing", std::nullopt, Said(""),
       "[CUTIL_LoadFile] Error line[N], reason('fp' is NULL, filename'/tmp/micom_firmware')\n" +
           Failed("CUTIL_LoadFile '/tmp/micom_firmware'")},
      {"empty", 0, Said(Failed("image shorter than its header, 0 vs 64")), ""},
      {"one byte short", 63, Said(Failed("image shorter than its header, 63 vs 64")), ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    config.ptz_enable = 0;  // whose lines go to standard error as well
    StartMicom({});
    unlink(kImagePath);
    if (row.size.has_value()) sim::WriteTextFile(kImagePath, std::string(*row.size, 'H'));
    EXPECT_TRUE(OrderUpdate(kQuickly).has_value());
    EXPECT_EQ(Output(), row.output);
    EXPECT_EQ(Errors(), row.errors);
    EXPECT_EQ(Loader(), nullptr);
  }
}

TEST_F(ModuleUpdate, LineThatCannotBeOpenedAgain) {
  StartMicom({});
  WriteImage(Payload(10));
  sim::WriteTextFile("/etc/capabilities.conf", "Serial.2.DevPath=/dev/ttyS9\n");
  EXPECT_TRUE(OrderUpdate(kQuickly).has_value());
  EXPECT_EQ(Output(), Said(Failed("OpenRS232")));
}

// --- Acknowledgement --------------------------------------------------------------------------

TEST_F(ModuleUpdate, Acknowledgements) {
  const struct {
    const char* legend;
    LoaderSetup setup;
    const char* failure;  // "": none
    int least_ms;
    int most_ms;
  } rows[] = {
      {"noise", {.before_sign = {0x55, 0x00, 0x12, 0xFF}}, "", 0, 4000},
      // the second DC is the other half of a pair that is none
      {"pair that is none", {.before_sign = {0xDC, 0xDC, 0x12}}, "", 0, 4000},
      {"other halves", {.before_sign = {0xDC, 0x13, 0x33, 0x33}}, "", 0, 4000},
      {"long noise", {.before_sign = Bytes(500, 0x12)}, "", 0, 4000},
      {"late", {.sign_delay = milliseconds(8000)}, "", 7990, 12'000},
      {"never", {.sign = {}}, "ack not match 0000 vs DC12", 9990, 13'000},
      {"never right", {.sign = {0xDC, 0xDC, 0x12}}, "ack not match 1200 vs DC12", 9990, 13'000},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    const milliseconds took = Run(300, row.setup, milliseconds(14'000));
    EXPECT_GE(took, milliseconds(row.least_ms));
    EXPECT_LE(took, milliseconds(row.most_ms));
    if (*row.failure != '\0') {
      EXPECT_EQ(Output(), Said(Failed(row.failure)));
      continue;
    }
    ExpectStored(300);
    EXPECT_EQ(Output(), Said(kAcknowledged + Progress(300) + "end\n"));
  }
}

// --- Trouble that passes ----------------------------------------------------------------------

TEST_F(ModuleUpdate, PacketsAreSentAgain) {
  const struct {
    const char* legend;
    LoaderTrouble trouble;
    std::pair<int, int> sends;  // of each packet, as it is counted
    milliseconds least{0};
    milliseconds most = kQuickly;
  } rows[] = {
      {"refused once", {.packet = 1, .fault = LoaderFault::kRefuse}, {2, 1}},
      {"damaged twice", {.packet = 2, .fault = LoaderFault::kDamagedPacket, .times = 2}, {1, 3}},
      {"answered with the start byte",
       {.packet = 2, .fault = LoaderFault::kRefuse, .answer = 0xA0},
       {1, 2}},
      {"taken at the last send of a series",
       {.packet = 1, .fault = LoaderFault::kRefuse, .times = 19},
       {20, 1}},
      {"taken in the second series",
       {.packet = 1, .fault = LoaderFault::kRefuse, .times = 20},
       {1, 1}},
      {"taken at the last send of all",
       {.packet = 2, .fault = LoaderFault::kRefuse, .times = 99},
       {1, 20}},
      {"silence twice",
       {.packet = 1, .fault = LoaderFault::kSilent, .times = 2},
       {3, 1},
       2 * kSilenceAtLeast,
       2 * kSilenceAtMost},
      {"late",
       {.packet = 1, .fault = LoaderFault::kLate, .delay = milliseconds(2500)},
       {1, 1},
       milliseconds(2500),
       2 * kQuickly},
      // Sent a second time while the loader is deaf; the answer to the first counts.
      {"too late",
       {.packet = 2, .fault = LoaderFault::kLate, .delay = milliseconds(5000)},
       {1, 2},
       kSilenceAtLeast,
       3 * kQuickly},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.legend);
    const milliseconds took = Run(300, {.troubles = {row.trouble}}, milliseconds(16'000));
    ExpectStored(300);
    const auto [first, second] = row.sends;
    EXPECT_EQ(Output(),
              Said(std::string(kAcknowledged) + "* write  85%, retry[" + std::to_string(first) +
                   " / 20]\n* write 100%, retry[" + std::to_string(second) + " / 20]\nend\n"));
    EXPECT_GE(took, row.least);
    EXPECT_LE(took, row.most);
  }
}

// --- Trouble that stays -----------------------------------------------------------------------

// At every packet of an update of 300 bytes, each kind of trouble. Silence in the data packets
// alone is not among them: a hundred sends of three seconds each; refusals end the same loop.
TEST_F(ModuleUpdate, BrokenOffAtEveryPacket) {
  const std::string first = "* write  85%, retry[1 / 20]\n";
  const std::string both = first + "* write 100%, retry[1 / 20]\n";
  const auto header = [](const char* byte) {
    return Failed(std::string("sync not match ") + byte + " vs 33");
  };
  const std::string data = Failed("send data packet not match 15 vs 33");
  const auto tail = [](const char* byte) {
    return Failed(std::string("send tail packet not match ") + byte + " vs 33");
  };
  const struct {
    LoaderTrouble trouble;
    std::string output;  // after the acknowledgement
    bool is_silence;
  } rows[] = {
      {{0, LoaderFault::kSilent, kForEver}, header("A0"), true},
      {{0, LoaderFault::kRefuse, kForEver}, header("15"), false},
      {{0, LoaderFault::kDamagedAnswer, 1}, header("32"), false},
      {{1, LoaderFault::kRefuse, 100}, data, false},
      // Its acceptance lost, the packet is sent again and stored twice: there is no room for it.
      {{1, LoaderFault::kDamagedAnswer, 1}, data, false},
      {{2, LoaderFault::kRefuse, kForEver}, first + data, false},
      // The loader has all bytes then and takes nothing but a tail.
      {{2, LoaderFault::kDamagedAnswer, 1}, first + data, false},
      {{3, LoaderFault::kSilent, kForEver}, both + Failed("SerialRecv"), true},
      {{3, LoaderFault::kRefuse, kForEver}, both + tail("15"), false},
      {{3, LoaderFault::kRefuse, kForEver, 0x44}, both + tail("44"), false},
      {{3, LoaderFault::kDamagedAnswer, 1}, both + tail("32"), false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "packet " << row.trouble.packet << ", fault "
                                    << static_cast<int>(row.trouble.fault));
    const milliseconds took = Run(300, {.troubles = {row.trouble}}, 2 * kQuickly);
    EXPECT_EQ(Output(), Said(kAcknowledged + row.output));
    EXPECT_GE(took, row.is_silence ? kSilenceAtLeast : milliseconds(0));
    EXPECT_LE(took, row.is_silence ? kSilenceAtMost : kQuickly);
  }
}

// --- Speed ------------------------------------------------------------------------------------

TEST_F(ModuleUpdate, UsesTheLine) {
  constexpr size_t kPayload = 100'000;
  constexpr size_t kPacketsOfData = (kPayload + 255) / 256;
  constexpr size_t kBytesOnLine =
      8 + 1 + kPayload + kPacketsOfData * (6 + 1) + 7 + 1;  // with an answer a packet
  constexpr double kBytesPerSecond = 115200 / 10.0;
  constexpr double kLeastShare = 0.85;
  StartMicom({});
  WriteImage(Payload(kPayload));
  server->SetPaced();
  SendCommand(sim::CommandPacket(CICOMM_PCMD_MICOM_FIRMWARE_UPDATE, {}));
  ASSERT_TRUE(ServeUntilWords("ready\n"));
  const auto begin = sim::Clock::now();
  ASSERT_TRUE(server->ServeUntil([&] { return manager.Receive(milliseconds(0)).has_value(); },
                                 milliseconds(30'000)));
  const double seconds = std::chrono::duration<double>(sim::Clock::now() - begin).count();
  const double allowed = kBytesOnLine / kBytesPerSecond;
  ExpectStored(kPayload);
  printf("%zu bytes in %.2f s, the line allows %.2f s: %.1f %%\n", kPayload, seconds, allowed,
         100 * allowed / seconds);
  EXPECT_GE(allowed / seconds, kLeastShare);
  EXPECT_LE(allowed / seconds, 1.0) << "the line is faster than it can be";
}

}  // namespace
