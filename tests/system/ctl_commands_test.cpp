// The other commands of the tool: bytes for the line, files, firmware, and what is refused.
#include <json-c/json.h>

#include <filesystem>

#include "cmmap/cmmap.h"
#include "cmmap/param_block.h"
#include "sim/sd_module.h"
#include "tests/system/ctl_fixture.h"
#include "tests/system/lens_fixture.h"
#include "tests/system/update_fixture.h"

namespace {

using sim::Bytes;
using sim::milliseconds;

class CtlCommand : public DeviceTest {};

// A JSON object as "KEY=VALUE ...", "" for a text that is none.
std::string Flat(const std::string& text) {
  json_object* object = json_tokener_parse(text.c_str());
  std::string flat;
  json_object_object_foreach(object, key, value) {
    if (!flat.empty()) flat += ' ';
    flat.append(key).append("=").append(json_object_get_string(value));
  }
  json_object_put(object);
  return flat;
}

// --- Refusals -----------------------------------------------------------------------------------

TEST_F(CtlCommand, WrongLinesGetOneLineAndAStatus) {
  const std::string nobody = "nobody listens at UDP port 10017 of 127.0.0.1; does rs232d run?";
  const struct {
    const char* line;
    int status;
    std::string error;
  } rows[] = {
      {"pzt", 2, "unknown command 'pzt', did you mean ptz?"},
      {"xxxxxx", 2, "unknown command 'xxxxxx'; --help lists them"},
      {"--verson=1", 2, "unknown option --verson, did you mean --version?"},
      {"ptz", 2, "ptz needs a verb; rs232ctl ptz --list has all"},
      {"ptz pan-lfet", 2, "ptz: unknown command 'pan-lfet', did you mean pan-left?"},
      {"ptz zoom", 2,
       "ptz: unknown command 'zoom', did you mean zoom-tele or zoom-wide or zoom-speed?"},
      {"ptz zoom-tele --for", 2, "ptz zoom-tele: --for: TIME is missing"},
      {"monitor --protocol peclo", 2,
       "monitor: --protocol: peclo is none of auto, pelco-d, sd-module, hd-micom, firmware, lens"},
      {"lens fit --name 'A B' x", 2,
       "lens fit: --name: 'A B' is no name of letters, digits and underscores"},
      {"ptz preset", 2, "ptz preset: a command is missing: set, go, clear"},
      {"ptz preset st 5", 2, "ptz preset: unknown command 'st', did you mean set?"},
      {"ptz preset set", 2, "ptz preset set: N is required"},
      {"ptz preset set 256", 2, "ptz preset set: N: 256 is no number from 0 to 255"},
      {"ptz module-setting 255", 2, "ptz module-setting: N: 255 is no number from 0 to 254"},
      {"ptz move 1 2 128", 2, "ptz move: ZOOM: 128 is no number from -128 to 127"},
      {"ptz code 10000", 2, "ptz code: HEX: 10000 is no hexadecimal code from 0 to FFFF"},
      {"ptz pan-left --speed 0", 2, "ptz pan-left: --speed: 0 is no number from 1 to 127"},
      {"ptz zoom-tele --for 3", 2,
       "ptz zoom-tele: --for: 3 is no duration such as 500ms, 2s or 5m, at most 24h"},
      {"ptz menu --for 3s", 2, "ptz menu: unknown option --for"},
      {"ptz up down", 2, "ptz up: 'down' is too much"},
      {"ptz --list up", 2, "ptz up: up excludes --list"},
      {"write 41", 2, "write needs either --hex or --text"},
      {"write --hex - < /etc/udp_port_table.conf", 1,
       "'RS232_DAEMON_PORT=10020' is not hexadecimal"},
      {"lens plot > /dev/full", 1, "cannot write the output"},
      {"write --text ''", 2, "there are no bytes to write"},
      {"params shw", 2, "params: unknown command 'shw', did you mean show?"},
      {"params set buad=1", 2, "there is no parameter buad, did you mean baud?"},
      {"params show --file /none", 1, "cannot open /none: No such file or directory"},
      {"params show --file /etc", 1, "/etc is no regular file"},
      {"params set --file /dev/null baud=9600", 1, "/dev/null is no regular file"},
      {"params set --file /etc/udp_port_table.conf baud=9600", 1,
       "/etc/udp_port_table.conf is no parameter block: it has 24 bytes, not 23972"},
      {"params create", 1, "cannot create /var/nvt/param.dat: File exists"},
      {"firmware-update /none", 1, "cannot open /none: No such file or directory"},
      {"firmware-update /etc", 1, "/etc is no regular file"},
      {"firmware-update /etc/udp_port_table.conf", 1,
       "/etc/udp_port_table.conf is no firmware image: it has 24 bytes, its header 64"},
      {"ptz menu", 3, nobody},
      {"ptz zoom-tele --for 60s", 3, nobody},
      {"stop", 3, "nobody listens at UDP port 10020 of 127.0.0.1; does rs232d run?"},
      {"write --text x", 3, "nobody listens at UDP port 10020 of 127.0.0.1; does rs232d run?"},
  };
  Install();
  EXPECT_TRUE(RunCtl("").errors.starts_with("rs232ctl: a command is missing: "));
  for (const auto& row : rows)
    ExpectCtl(row.line, row.status, row.error);
  sim::WriteTextFile("/etc/udp_port_table.conf", "");
  ExpectCtl("stop", 1, "/etc/udp_port_table.conf gives no port as RS232_DAEMON_PORT");
  std::filesystem::remove("/etc/udp_port_table.conf");
  ExpectCtl("stop", 1, "cannot open /etc/udp_port_table.conf: No such file or directory");
}

TEST_F(CtlCommand, HelpAndVersionHaveNoErrors) {
  for (const char* words : {"", "ptz", "ptz pan-left", "ptz preset", "ptz preset set", "write",
                            "info", "params", "params set", "firmware-update", "stop"}) {
    const CtlResult result = RunCtl(std::string(words) + " --help");
    EXPECT_EQ(result.status, 0) << result;
    EXPECT_NE(result.output.find("Example"), std::string::npos) << result;
  }
  EXPECT_TRUE(RunCtl("--version").output.starts_with("rs232ctl "));
}

// --- The line -----------------------------------------------------------------------------------

TEST_F(CtlCommand, WriteAndStop) {
  config.baud_rate = 115200;
  Start();
  sim::WriteTextFile("/tmp/input", std::string("A\0\n\xFF", 4));
  const struct {
    const char* line;
    const char* bytes;
  } rows[] = {
      {"write --hex FF 01 0x00", "FF 01 00"},         {"write --hex 'ff01 00'", "FF 01 00"},
      {"write --text a 'b  c'", "61 20 62 20 20 63"}, {"write --text -- -x", "2D 78"},
      {"write --text - < /tmp/input", "41 00 0A FF"}, {"write --hex - < /etc/hexinput", "DE AD"},
  };
  sim::WriteTextFile("/etc/hexinput", "DE\nAD\n");
  for (const auto& row : rows) {
    ExpectCtl(row.line, 0);
    EXPECT_EQ(Line((std::string(row.bytes).size() + 1) / 3), row.bytes) << row.line;
  }
  ExpectLineQuiet();
  ExpectCtl("stop", 0);
  ExpectEnd(0);
}

// More than the daemon's socket holds while the line is slow: nothing may be lost.
TEST_F(CtlCommand, LongInputArrivesWholeAndInOrder) {
  config.baud_rate = 115200;
  Start();
  std::string text;
  while (text.size() < 40'000)
    text += std::to_string(text.size()) + ' ';
  sim::WriteTextFile("/tmp/input", text);
  const auto begin = sim::Clock::now();
  const auto ctl = StartCtl("write --text - < /tmp/input");
  const Bytes received = line.Receive(text.size(), milliseconds(20'000));
  EXPECT_TRUE(std::equal(text.begin(), text.end(), received.begin(), received.end()));
  EXPECT_EQ(AwaitCtl(ctl.get()).status, 0);
  // All but what it may be ahead took its time on a line of 11520 bytes a second.
  EXPECT_GE(sim::Clock::now() - begin, milliseconds(3000));
}

// --- Parameters ---------------------------------------------------------------------------------

TEST_F(CtlCommand, ParamsOfARunningDevice) {
  Start();
  EXPECT_EQ(Flat(RunCtl("params show --json").output),
            "model=QB-100 serial-count=2 baud=9600 parity=0 data-bits=8 stop-bits=1 ptz-enable=1 "
            "ptz-port=4001");
  ExpectCtl("params set model=QB-620 baud=19200 parity=even", 0);
  config.model = "QB-620";
  config.baud_rate = 19200;
  config.parity = 1;
  const std::vector<uint8_t> expected = sim::BuildParamBlock(config);
  EXPECT_EQ(sim::ReadTextFile(PARAM_BLOCK_PATH), std::string(expected.begin(), expected.end()));
  // One wrong value: none is taken.
  ExpectCtl("params set baud=9600 parity=5", 2, "parity cannot be '5'; allowed: none, even, odd");
  EXPECT_EQ(Flat(RunCtl("params show --json").output).substr(0, 38),
            "model=QB-620 serial-count=2 baud=19200");
  EXPECT_NE(RunCtl("params show").output.find("parity        even\n"), std::string::npos);
  ExpectCtl("stop", 0);
  ExpectEnd(0);
  Launch();
  ASSERT_TRUE(daemon->WaitServing(config));
  const termios settings = line.Settings();
  EXPECT_EQ(cfgetospeed(&settings), static_cast<speed_t>(B19200));
  ExpectCtl("ptz preset set 5", 0);
  EXPECT_EQ(Line(7), "FF 01 00 03 00 05 09");
}

TEST_F(CtlCommand, ParamsSetWaitsForTheLocksAndKeepsWhatItsHolderWrote) {
  Install();
  CMMAP map;
  ASSERT_EQ(CMMAP_Init(&map, PARAM_BLOCK_PATH, PARAM_BLOCK_KEY, CMMAP_OPEN, PARAM_BLOCK_SIZE), 0);
  map.Lock(&map);
  const auto ctl = StartCtl("params set baud=19200");
  EXPECT_FALSE(ctl->WaitEnd(milliseconds(300)).has_value());
  // A change of another process's own field, while the tool waits.
  constexpr int kForeignField = 5000;
  static_cast<uint8_t*>(map.map)[kForeignField] = 0x77;
  map.Unlock(&map);
  EXPECT_EQ(AwaitCtl(ctl.get()).status, 0);
  config.baud_rate = 19200;
  std::vector<uint8_t> expected = sim::BuildParamBlock(config);
  expected[kForeignField] = 0x77;
  EXPECT_EQ(sim::ReadTextFile(PARAM_BLOCK_PATH), std::string(expected.begin(), expected.end()));
  map.Deinit(&map);
}

TEST_F(CtlCommand, ParamsCreateMakesADevice) {
  Install();
  std::filesystem::remove(PARAM_BLOCK_PATH);
  ExpectCtl("params create model=QB-610 ptz-enable=on", 0);
  EXPECT_EQ(std::filesystem::file_size(PARAM_BLOCK_PATH), 23972U);
  Launch();
  ASSERT_TRUE(daemon->WaitServing(config));
  ExpectCtl("ptz up", 0);
  EXPECT_EQ(Line(7), "FF 01 00 08 00 00 09");
  ExpectCtl("params create --file /nowhere/x", 1,
            "cannot create /nowhere/x: No such file or directory");
}

// --- Information --------------------------------------------------------------------------------

class CtlModule : public UpdateTest {};

TEST_F(CtlModule, InfoOfModules) {
  ExpectCtl("info", 1, "there is no /var/nvt/camera.info: no module or lens has told about itself");
  StartWith("QB-210", std::make_unique<sim::SdModule>(0x12, sim::Clock::now()));
  const auto is_told = [this] { return Info().ends_with("RESOLUTION=sd\n"); };
  ASSERT_TRUE(server->ServeUntil(is_told));
  EXPECT_EQ(RunCtl("info").output, "version     0.0\nmodel       18\nresolution  sd\n");
  EXPECT_EQ(daemon->Stop(), 0);
  StartMicom({});
  EXPECT_EQ(Flat(RunCtl("info --json").output), "version=2.1 model=Sony 2M resolution=1080p");
}

class CtlLens : public LensTest {};

TEST_F(CtlLens, InfoTraceAndFirmware) {
  InstallLens(sim::PositionsText(0, 200));
  AttachLens({.zoom = 0, .focus = 200});
  Launch({"1"});
  AwaitLoop();
  const std::string flat = Flat(RunCtl("info --json").output);
  EXPECT_EQ("VERSION=" + flat.substr(flat.find('=') + 1) + "\n",
            sim::ReadTextFile(CAMERA_INFO_PATH));
  ExpectCtl("monitor --for 1ms", 0,
            "warning: this device, QB-420, sends no serial data; 'rs232d 1 | rs232ctl frames' "
            "shows its line");
  sim::WriteTextFile("/etc/trace", daemon->Output());
  const std::string words = RunCtl("frames < /etc/trace").output;
  for (const char* part : {" SEND  A5 41 01 00 00 E7 ", " read: version\n", " RECV  A5 41 01 ",
                           " reply: version 1.5-s\n", " step rate: 515 steps a second\n"})
    EXPECT_NE(words.find(part), std::string::npos) << part;

  sim::WriteTextFile("/etc/new_firmware", std::string(164, 'x'));
  const CtlResult ordered = RunCtl("firmware-update --yes /etc/new_firmware");
  EXPECT_EQ(ordered.status, 0) << ordered;
  EXPECT_EQ(ordered.output, "ordered to lay out 100 bytes of firmware and reboot this QB-420\n");
  EXPECT_TRUE(WaitOutput("CICOMM_PCMD_MICOM_FIRMWARE_UPDATE\n"));
}

// --- Firmware -----------------------------------------------------------------------------------

class CtlFirmware : public CtlModule {
 protected:
  static constexpr char kSource[] = "/etc/new_firmware";
  static constexpr size_t kSize = 3000;

  void WriteSource() {
    WriteImage(Payload(kSize));
    std::filesystem::copy_file(kImagePath, kSource,
                               std::filesystem::copy_options::overwrite_existing);
    unlink(kImagePath);
  }

  void ExpectUpdated() {
    ASSERT_TRUE(server->ServeUntil([this] { return manager.Receive(milliseconds(0)).has_value(); },
                                   milliseconds(20'000)));
    ASSERT_NE(Loader(), nullptr);
    EXPECT_TRUE(Loader()->IsComplete()) << Loader()->Describe();
    EXPECT_TRUE(Loader()->Firmware() == Payload(kSize));
  }
};

TEST_F(CtlFirmware, EndToEnd) {
  StartMicom({});
  WriteSource();
  const CtlResult result = RunCtl(std::string("firmware-update --yes ") + kSource);
  EXPECT_EQ(result.status, 0) << result;
  ExpectUpdated();
  for (const auto& entry : std::filesystem::directory_iterator("/tmp"))
    EXPECT_FALSE(entry.path().string().starts_with("/tmp/micom_firmware.")) << "left behind";
}

TEST_F(CtlFirmware, AsksAtATerminalAndNowhereElse) {
  StartMicom({});
  WriteSource();
  const std::string line_arguments = std::string("firmware-update ") + kSource;
  const std::string deed =
      "write 3000 bytes of firmware into the camera module of this QB-310 and reboot the device";
  ExpectCtl(line_arguments, 4,
            "there is no terminal to ask at whether to " + deed + "; --yes says so");
  sim::PtyLine terminal("/dev/asking");
  const std::string at_terminal = line_arguments + " < /dev/asking";
  terminal.Send(Bytes{'n', '\n'});
  const CtlResult refused = RunCtl(at_terminal);
  EXPECT_EQ(refused.status, 4);
  EXPECT_EQ(refused.errors,
            "This will " + deed + ". Go on? [y/N] rs232ctl: declined; nothing was done\n");
  EXPECT_FALSE(std::filesystem::exists(kImagePath));
  terminal.Send(Bytes{'y', '\n'});
  EXPECT_EQ(RunCtl(at_terminal).status, 0);
  ExpectUpdated();
}

TEST_F(CtlFirmware, RefusedWhereItCannotBe) {
  Install();
  WriteSource();
  const std::string line_arguments = std::string("firmware-update --yes ") + kSource;
  ExpectCtl(line_arguments, 1, "this device, QB-100, takes no firmware");
  config.model = "QB-210";
  Install();
  ExpectCtl(line_arguments, 1, "this device, QB-210, takes no firmware");
  config.model = "QB-310";
  Install();
  ExpectCtl(line_arguments, 3, "nobody listens at UDP port 10017 of 127.0.0.1; does rs232d run?");
  EXPECT_FALSE(std::filesystem::exists(kImagePath));
}

}  // namespace
