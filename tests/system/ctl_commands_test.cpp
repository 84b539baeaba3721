// The other commands of the tool: status, write, files, firmware, and errors.
#include <csignal>
#include <filesystem>
#include <functional>

#include "cmmap/cmmap.h"
#include "cmmap/param_block.h"
#include "tests/system/ctl_fixture.h"
#include "tests/system/lens_fixture.h"
#include "tests/system/module_fixture.h"
#include "tools/format.h"
#include "tools/processes.h"

namespace {

using sim::Bytes;
using sim::milliseconds;

using CtlCommand = DeviceTest;

TEST_F(CtlCommand, ErrorsPrintOneLineAndSetTheStatus) {
  const std::string nobody =
      "no process listens on UDP port 10017 of 127.0.0.1; is rs232d running?";
  const std::tuple<const char*, int, std::string> rows[] = {
      {"ptz pan-lfet", 2, "ptz: unknown command 'pan-lfet', did you mean pan-left?"},
      {"lens plot > /dev/full", 1, "cannot write the output"},
      {"params set --file /etc/udp_port_table.conf baud=9600", 1,
       "/etc/udp_port_table.conf is not a parameter block: it has 24 bytes, not 23972"},
      {"params create", 1, "cannot create /var/nvt/param.dat: File exists"},
      {"firmware-update /tmp/header", 1,
       "/tmp/header is not a firmware image: it has 64 bytes, not 65 to 16777216"},
      {"ptz pan-left", 1, "this device, QB-100, does not support pan-left; supported by: QB-620"},
      {"info", 1, "/var/nvt/camera.info does not exist: no module or lens has reported yet"},
      {"ptz zoom-tele --for 60s", 3, nobody},
      {"frames '\x1B[2J\n'", 2, R"('\x1B' is not hexadecimal)"},
      {"stop", 3, "no process listens on UDP port 10020 of 127.0.0.1; is rs232d running?"},
  };
  Install();
  std::filesystem::remove(CAMERA_INFO_PATH);
  sim::WriteTextFile("/tmp/header", std::string(64, '\xA0'));
  for (const auto& [arguments, status, error] : rows)
    ExpectCtl(arguments, status, error);
  sim::WriteTextFile(CAMERA_INFO_PATH, "VERSION=\x1B]0;owned\x07");
  EXPECT_EQ(RunCtl("info").output, "version     \\x1B]0;owned\\x07\n");
  sim::WriteTextFile("/etc/udp_port_table.conf", "");
  ExpectCtl("stop", 1, "/etc/udp_port_table.conf has no valid RS232_DAEMON_PORT");
}

TEST_F(CtlCommand, StatusReportsTheDaemonAndItsFaults) {
  sim::DaemonProcess help(RS232D_PATH, {"--help"});
  EXPECT_EQ(help.WaitEnd(), 0);
  EXPECT_TRUE(help.Output().starts_with("Usage: rs232d [TRACE]\n"));
  Start();
  const CtlResult running = RunCtl("status");
  EXPECT_EQ(running.status, 0);
  EXPECT_NE(running.output.find("\nline     /dev/ttyS1, 9600 8N1, open\nclients  "),
            std::string::npos)
      << running.output;
  daemon->Stop();

  // Each row removes one more thing; the expected line, and the number of faults.
  std::optional<sim::UdpPeer> other;
  CMMAP map = {};
  const std::string by_this = tools::ProcessText(getpid());
  const std::tuple<std::function<void()>, std::string, const char*> rows[] = {
      {[] { sim::WriteTextFile("/etc/temp.conf", ""); },
       "warning  settings         /etc/temp.conf exists", "no fault found"},
      {[&] { other.emplace(RS232_COMMAND_PORT); },
       "fault    command port     udp 10017, in use by " + by_this, "1 fault found"},
      {[&] {
         CMMAP_Init(&map, PARAM_BLOCK_PATH, PARAM_BLOCK_KEY, CMMAP_OPEN, PARAM_BLOCK_SIZE);
         map.Lock(&map);
       },
       "fault    block's locks    file lock held by " + by_this, "2 faults found"},
      {[&] {
         config.serial_count = 1;
         Install();
       },
       "fault    serial ports     1 in the parameter block", "3 faults found"},
      {[&] { std::filesystem::remove(config.serial_path); },
       "fault    serial device    /dev/ttyS1 does not exist", "4 faults found"},
      {[] { std::filesystem::remove(PARAM_BLOCK_PATH); },
       "fault    block's locks    semaphore held by " + by_this, "4 faults found"},
  };
  for (const auto& [take_away, finding, faults] : rows) {
    take_away();
    const CtlResult result = RunCtl("status");
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find(finding), std::string::npos) << finding << "\n" << result.output;
    EXPECT_EQ(result.errors, std::string("rs232ctl: rs232d is not running; ") + faults + "\n");
  }
  EXPECT_NE(RunCtl("status --json").output.find("\"running\": false"), std::string::npos);
  map.Unlock(&map);
  map.Deinit(&map);
}

// The second input exceeds the daemon's socket buffer while the line is slow; no byte may be lost.
TEST_F(CtlCommand, WritesInputWithoutLoss) {
  config.baud_rate = 115200;
  Start();
  std::string text = std::string("A\0\n\xFF", 4);
  while (text.size() < 40'000)
    text += std::to_string(text.size()) + ' ';
  sim::WriteTextFile("/tmp/input", text);
  ExpectCtl("write --text -- -a 'b  c'", 0);
  EXPECT_EQ(Line(7), "2D 61 20 62 20 20 63");
  const auto begin = sim::Clock::now();
  const auto ctl = StartCtl("write --text - < /tmp/input");
  const Bytes received = line.Receive(text.size(), milliseconds(20'000));
  EXPECT_TRUE(std::string(received.begin(), received.end()) == text);
  EXPECT_EQ(AwaitCtl(ctl.get()).status, 0);
  ExpectLineQuiet();
  // Everything beyond the allowed lead takes its time on a line of 11520 bytes a second.
  EXPECT_GE(sim::Clock::now() - begin, milliseconds(3000));
}

// --- Files --------------------------------------------------------------------------------------

class CtlParams : public DeviceTest {
 protected:
  // Expects the parameter block of `config`, with `foreign` in a field that the tool does not know.
  void ExpectBlock(std::optional<uint8_t> foreign = std::nullopt) {
    sim::Bytes expected = sim::BuildParamBlock(config);
    expected[kForeignField] = foreign.value_or(expected[kForeignField]);
    const std::string block = sim::ReadTextFile(PARAM_BLOCK_PATH);
    EXPECT_TRUE(sim::Bytes(block.begin(), block.end()) == expected);
  }

  static constexpr int kForeignField = 5000;
};

TEST_F(CtlParams, ShowsAndSetsAllOrNone) {
  Install();
  EXPECT_TRUE(RunCtl("params show --json")
                  .output.starts_with("{\n  \"model\": \"QB-100\",\n  \"serial-count\": 2,\n"));
  EXPECT_NE(RunCtl("params set model=QB-620 baud=19200 parity=even").output.find("restarted"),
            std::string::npos);
  config.model = "QB-620";
  config.baud_rate = 19200;
  config.parity = 1;
  ExpectBlock();
  ExpectCtl("params set baud=9600 parity=5", 2, "parity cannot be '5'; allowed: none, even, odd");
  ExpectBlock();
  EXPECT_NE(RunCtl("params show").output.find("parity        even\n"), std::string::npos);

  std::filesystem::remove(PARAM_BLOCK_PATH);
  ExpectCtl("params create --file /tmp/block model=QB-61O", 0,
            "warning: unknown model QB-61O; the daemon treats it as a PTZ head");
  ExpectCtl("params create model=QB-610 ptz-enable=on", 0);
  EXPECT_EQ(std::filesystem::file_size(PARAM_BLOCK_PATH), PARAM_BLOCK_SIZE);
  Launch();
  ASSERT_TRUE(daemon->WaitServing(config));
  ExpectCtl("ptz up", 0);
  EXPECT_EQ(Line(7), "FF 01 00 08 00 00 09");
}

// Real time: the tool waits for a lock.
class RealTimeCtlParams : public CtlParams {};

TEST_F(RealTimeCtlParams, SetWaitsForTheLocksAndKeepsOtherFields) {
  Install();
  CMMAP map;
  ASSERT_EQ(CMMAP_Init(&map, PARAM_BLOCK_PATH, PARAM_BLOCK_KEY, CMMAP_OPEN, PARAM_BLOCK_SIZE), 0);
  map.Lock(&map);
  const auto ctl = StartCtl("params set baud=19200");
  EXPECT_FALSE(ctl->WaitEnd(milliseconds(300)).has_value());
  static_cast<uint8_t*>(map.map)[kForeignField] = 0x77;
  map.Unlock(&map);
  EXPECT_EQ(AwaitCtl(ctl.get()).status, 0);
  config.baud_rate = 19200;
  ExpectBlock(0x77);
  map.Deinit(&map);
}

using CtlLens = LensTest;

TEST_F(CtlLens, ReportsTracesAndFits) {
  InstallLens({.zoom = 0, .focus = 200});
  Launch({"1"});
  AwaitLoop();
  EXPECT_EQ(RunCtl("info --json").output, "{\n  \"version\": \"1.5-s\"\n}\n");
  ExpectCtl("monitor --for 1ms", 0,
            "warning: this device, QB-420, sends no serial data; 'rs232d 1 | rs232ctl frames' "
            "shows its line\nrs232ctl: listening on UDP port 1860 of 127.0.0.1");
  sim::WriteTextFile("/etc/trace", daemon->Output());
  const std::string words = RunCtl("frames < /etc/trace").output;
  EXPECT_NE(words.find(" reply: version 1.5-s\n"), std::string::npos) << words;

  const auto record = StartCtl("lens record /tmp/recorded --searches 2 --to 50");
  EXPECT_EQ(record->WaitEnd(milliseconds(60'000)), 0);
  const std::string recorded = sim::ReadTextFile("/tmp/recorded");
  EXPECT_EQ(sim::CountOf("TRACE\t   0\t", recorded), 2U) << recorded;
  EXPECT_EQ(sim::CountOf("TRACE\t  50\t", recorded), 2U) << recorded;
  const auto cut_short = StartCtl("lens record /tmp/recorded");
  ASSERT_TRUE(WaitOutput("TRACE\t  50\t", 3));
  cut_short->Signal(SIGINT);
  EXPECT_EQ(AwaitCtl(cut_short.get()).status, 128 + SIGINT);
  const size_t searches = CountInOutput("TRACE");
  Serve(sim::Clock::now() + milliseconds(20'000));
  EXPECT_EQ(CountInOutput("TRACE"), searches) << "not stopped";

  std::string log;
  for (const ZfEntry& entry : ZFTABLE_HERON)
    log += tools::Format("TRACE\t%d\t%d\tdiff=   0\n", entry.zoom, entry.focus);
  sim::WriteTextFile("/etc/trace", log);
  EXPECT_NE(RunCtl("lens fit /etc/trace --out /tmp/fit.h --svg /tmp/fit.svg")
                .output.find("28 trace points"),
            std::string::npos);
  EXPECT_NE(sim::ReadTextFile("/tmp/fit.h").find("{100, 210}"), std::string::npos);
  EXPECT_NE(sim::ReadTextFile("/tmp/fit.svg").find("</svg>"), std::string::npos);
}

// --- Firmware -----------------------------------------------------------------------------------

using CtlFirmware = UpdateTest;

TEST_F(CtlFirmware, AsksForConfirmationOnlyOnATerminal) {
  constexpr size_t kSize = 3000;
  const std::string line_arguments = "firmware-update /tmp/new_firmware";
  WriteImage(Payload(kSize));
  std::filesystem::rename(kImagePath, "/tmp/new_firmware");
  config.model = "QB-210";
  Install();
  ExpectCtl(line_arguments + " --yes", 1, "this device, QB-210, does not support firmware updates");
  StartMicom({});
  const std::string deed =
      "This will write 3000 bytes of firmware into the camera module of this QB-310 and reboot the "
      "device";
  ExpectCtl(line_arguments, 4, deed + ": stdin is not a terminal; use --yes to confirm");
  ExpectCtl("firmware-update --yes /etc/passwd", 4,
            "/etc/passwd does not look like a firmware image: it is plain text: stdin is not a "
            "terminal; use --force to confirm");
  sim::PtyLine terminal("/dev/asking");
  const std::string at_terminal = line_arguments + " < /dev/asking";
  terminal.Send(Bytes{'n', '\n'});
  const CtlResult refused = RunCtl(at_terminal);
  EXPECT_EQ(refused.status, 4);
  EXPECT_EQ(refused.errors, deed + ". Continue? [y/N] rs232ctl: declined; nothing was done\n");
  EXPECT_FALSE(std::filesystem::exists(kImagePath));
  terminal.Send(Bytes{'y', '\n'});
  const CtlResult followed = RunCtl("firmware-update --follow" + at_terminal.substr(15));
  EXPECT_EQ(followed.status, 0) << followed.errors;
  EXPECT_TRUE(followed.output.ends_with(
      " s left\nthe module has accepted the firmware; the device reboots\n"))
      << followed.output;
  ASSERT_TRUE(manager.Receive(milliseconds(20'000)).has_value());
  ExpectStored(kSize);
  for (const auto& entry : std::filesystem::directory_iterator("/tmp"))
    EXPECT_FALSE(entry.path().string().starts_with("/tmp/micom_firmware.")) << "left behind";
}

}  // namespace
