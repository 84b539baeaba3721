// Writes the seed corpora of the fuzz targets: fuzz_seeds DIRECTORY (fuzz/corpus of the checkout).
//
// Real frames, files and scripts of events, made by the protocol builders, each in the form that
// its target reads.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string>

#include "daemon/settings.h"
#include "ipc/camera_control.h"
#include "lens/i2m.h"
#include "lens/sensor_config.h"
#include "lens/video_source.h"
#include "module/hd_frame.h"
#include "module/micom_firmware.h"
#include "relay/daemon_datagram.h"
#include "relay/pelco_d.h"
#include "sim/device.h"
#include "sim/peers.h"
#include "util/bytes.h"

namespace {

// Seeds by "TARGET/NAME".
using Seeds = std::map<std::string, std::string>;

std::string Raw(std::initializer_list<int> bytes) {
  std::string text;
  for (const int byte : bytes)
    text += static_cast<char>(byte);
  return text;
}

template <typename Range>
std::string Joined(const Range& bytes) {
  return {bytes.begin(), bytes.end()};
}

std::string Long(uint32_t value) {
  uint8_t bytes[4];
  StoreLe32(bytes, value);
  return {bytes, bytes + sizeof(bytes)};
}

std::string Word(size_t value) {
  return Raw({static_cast<int>(value & 0xFF), static_cast<int>(value >> 8 & 0xFF)});
}

std::string Pelco(const PelcoCommand& command) {
  return Joined(PelcoBuild(command));
}

std::string Register(uint8_t kind, I2mAddress address, uint8_t high, uint8_t low) {
  return Joined(I2mBuild(kind, address, high, low));
}

CameraControl Control(uint16_t code, int first, int second, int third) {
  return {.target = CAMERA_CONTROL_TARGET,
          .code = code,
          .first = static_cast<int8_t>(first),
          .second = static_cast<int8_t>(second),
          .third = static_cast<int8_t>(third)};
}

std::string Payload(const CameraControl& control) {
  uint8_t payload[CAMERA_CONTROL_SIZE];
  CameraControlEncode(control, payload);
  return {payload, payload + sizeof(payload)};
}

std::string Sized(const std::string& bytes) {
  return Word(bytes.size()) + bytes;
}

// A read of the line that brings these bytes, 16 at most, and one that brings nothing.
std::string Answer(const std::string& bytes) {
  return Raw({static_cast<int>(bytes.size()) - 1}) + bytes;
}
const std::string kSilence = "\xFF";

// --- Settings files ------------------------------------------------------------------------------

void AddFiles(Seeds* seeds) {
  Seeds& s = *seeds;
  s["conf_token/pair"] = "\x20RS232_DAEMON_PORT=10020\n";
  s["conf_token/quoted"] = "\x20 key = \"a value\" \r\n";
  s["conf_token/cut"] = "\x04key_that_is_long=value";
  s["conf_token/comment"] = "\x10 # key=value";
  s["conf_token/section"] = "\x10[section]";
  s["conf_token/empty_key"] = "\x10=value";
  s["conf_token/quote_alone"] = "\x10\"=\"\"";
  const std::string file =
      "# a comment\n[Serial]\nSerial.1.DevPath=/dev/ttyS0\n"
      "Serial.2.DevPath = \"/dev/ttyS1\"\nSerial.2=\nlast=#no value";
  s["conf_get/value"] = std::string("Serial.2.DevPath\n") + '\x20' + file;
  s["conf_get/beginning"] = std::string("Serial\n") + '\x04' + file;
  s["conf_get/no_such_key"] = std::string("Camera\n") + '\x08' + file;
  s["conf_get/number"] = std::string("zoom_position\n") + '\x10' + sim::PositionsText(-1, 300);
  s["conf_set/replaced"] = "zoom_position\n512\n" + sim::PositionsText(100, 300);
  s["conf_set/appended"] = "Serial.3\n/dev/ttyS2\n" + file;
  s["conf_set/empty_file"] = "key\nvalue\n";
  s["conf_set/twice"] = "a\n2\na=1\nb=1\na 1\n#a=1\n a=1\na";
  s["positions/saved"] = sim::PositionsText(100, 300);
  s["positions/unknown"] = sim::PositionsText(-1, 300);
  s["positions/too_long"] = "zoom_position=1234567890123456\nfocus_position=1\n";
  s["positions/wraps"] = "focus_position = \"99999999999\"\nzoom_position=0x10\n";
  const std::string source = std::string(VIDEO_SOURCE_SENSOR_KEY) + "=";
  const std::string lens = std::string(LENS_MODEL_KEY) + "=2812\n" + LENS_NAME_KEY + "=M12\n";
  s["sensor_conf/imx123"] = source + "IMX123\n\f" + lens;
  s["sensor_conf/ar0230"] = source + "\"AR0230\"\n\f" + lens;
  s["sensor_conf/directories"] = source + "../../x\n\f" + LENS_NAME_KEY + "=/\n";
  const std::string flag = std::string(ISP_ANTIFLICKER_PATH) + "\n\x10";
  s["isp_json/on"] = flag + sim::TuningText("true");
  s["isp_json/text"] = flag + sim::TuningText("\"TRUE\"");
  s["isp_json/object"] = "All.AE\n\x06" + sim::TuningText("{\"a\": [1, null, 1e9]}");
  s["isp_json/cut_off"] = flag + sim::TuningText("false").substr(0, 30);
  s["kill_list/names"] = "/bin/sl\n/bin/sleep\n\n/usr/sbin/camerad\r\n/bin/sleeper";
  s["kill_list/too_long"] = "/bin/a_name_longer_than_thirty_one\n/b\n/bin\n";
  std::string many;
  for (int i = 0; i < 20; ++i)
    many += "/bin\n";
  s["kill_list/too_many"] = many;
  s["load_file/image"] = Raw({0, 1, 2, 0xFF, 0}) + "firmware";
  for (const char* text : {"192.168.0.1", "1..2.3", "1.2.3.4.5", "1234.1.1.1", "host.local"})
    s[std::string("dotted_quad/") + text] = text;
}

std::string Block(int missing, int count, int parity, int enable, uint32_t port,
                  const std::string& model) {
  std::string block = Word(static_cast<size_t>(missing));
  const uint32_t words[] = {
      static_cast<uint32_t>(count),  9600, static_cast<uint32_t>(parity), 8, 1,
      static_cast<uint32_t>(enable), port};
  for (const uint32_t word : words)
    block += Long(word);
  return block + "10020\n" + model + Raw({0});
}

void AddBlocks(Seeds* seeds) {
  Seeds& s = *seeds;
  s["param_block/relay"] = Block(0, 2, 0, 1, 4001, "QB-620");
  s["param_block/lens"] = Block(0, 4, 2, 0, 4001, "QB-420");
  s["param_block/one_port"] = Block(0, 1, 0, 1, 4001, "QB-210");
  s["param_block/short_file"] = Block(1, 2, 0, 1, 4001, "QB-310");
  s["param_block/out_of_range"] = Block(0, 2, 7, 2, 0x18000, std::string(160, 'Q'));
}

// --- Frames --------------------------------------------------------------------------------------

void AddFrames(Seeds* seeds) {
  Seeds& s = *seeds;
  const std::string left = Pelco({0, PELCO2_PAN_LEFT, 29, 0});
  const std::string preset = Pelco({0, PELCO_SET_PRESET, 0, 95});
  s["pelco_stream/frames"] = '\x02' + left + preset + Pelco({});
  s["pelco_stream/noise"] = '\x06' + Raw({0x12, 0xFF, 0xFF}) + left + "\xFF\x01" + preset + "\xFF";
  s["pelco_stream/wrong_checksum"] = '\x08' + left.substr(0, 6) + "\x55" + left;
  s["ptz_translate/joystick"] = Payload(Control(CAMERA_CODE_JOYSTICK, 40, -20, 1));
  s["ptz_translate/speeds"] = Payload(Control(CAMERA_CODE_ZOOM_SPEED, -128, 0, 0)) +
                              Payload(Control(CAMERA_CODE_FOCUS_SPEED, 127, 0, 0));
  s["ptz_translate/preset_and_menu"] = Payload(Control(CAMERA_CODE_GO_TO_PRESET, -1, 0, 0)) +
                                       Payload(Control(CAMERA_CODE_MENU, 0, 0, 0));
  s["ptz_translate/module"] = Payload(Control(CAMERA_CODE_MODULE_SETTING, -1, 0, 0)) +
                              Payload(Control(CAMERA_CODE_FOCUS, -1, 0, 0));
  const std::string packet = Joined(sim::CameraControlPacket(Control(CAMERA_CODE_LEFT, 0, 0, 0)));
  s["command_packet/control_then_short"] = Sized(packet) + Sized(packet.substr(0, 20));
  s["command_packet/update"] = Sized(Joined(sim::CommandPacket(34, {}))) + Sized("");
  s["command_packet/lying_size"] = Sized(packet.substr(0, 16) + "\xFF\xFF\xFF\x7F" + "more");
  s["i2m_stream/frames"] = Register(I2M_WRITE, I2M_ADDR_MFZ_MODEL, 0, 0) +
                           Register(I2M_WRITE, I2M_ADDR_FOCUS_VALUE_REQ, 0, 1) +
                           Register(I2M_READ, I2M_ADDR_VERSION, 0x81, 0x20);
  s["i2m_stream/sync_again"] = Raw({0xA5, 0xA5}) +
                               Register(I2M_WRITE, I2M_ADDR_AF_MODE, 0xA5, 0xA5) +
                               Raw({0xA5, 0x42}) + Register(I2M_READ, I2M_ADDR_MFZ_MODEL, 0, 0);
}

// --- Module answers --------------------------------------------------------------------------

std::string HdAnswer(HdCommand command, uint8_t value) {
  return Joined(HdBuild(command, HD_QUERY, value));
}

void AddAnswers(Seeds* seeds) {
  Seeds& s = *seeds;
  const std::string version = HdAnswer(HD_VERSION, 0x21);
  const std::string flag = HdAnswer(HD_RESOLUTION_FLAG, 0);
  const std::string sensor = HdAnswer(HD_SENSOR, 0x46);
  s["hd_replies/whole"] = Answer(version) + Answer(flag) + Answer(sensor);
  s["hd_replies/in_pieces"] = Answer(version.substr(0, 4)) + kSilence + Answer(version.substr(4)) +
                              Answer(flag) + Answer(sensor);
  s["hd_replies/too_short"] =
      Answer(version.substr(0, 5)) + std::string(50, '\xFF') + Answer(flag) + Answer(sensor);
  s["hd_replies/not_known"] = Answer(HdAnswer(HD_VERSION, 0xFF)) + Answer(flag) + Answer(sensor);

  const std::string sign = Answer("\xDC") + Answer("\x12");
  const std::string yes = Answer("\x33");
  const std::string no = Answer("\x15");
  s["micom_update/good"] = Word(900) + sign + yes + yes + yes + yes + yes + yes;
  s["micom_update/resent"] =
      Word(400) + Answer("\xDC") + sign + yes + no + kSilence + yes + yes + yes;
  s["micom_update/refused_header"] = Word(400) + sign + no;
  s["micom_update/no_sign"] = Word(400) + Answer("\x12") + Answer("\xDC") + kSilence;
  s["micom_update/short_image"] = Word(10);
  std::string refusals;
  for (int i = 0; i < 110; ++i)
    refusals += no;
  s["micom_update/given_up"] = Word(400) + sign + yes + refusals;
}

// --- Scripts of events -------------------------------------------------------------------------

// As mode_world.cpp reads them; `passes` follow the event, 15 is many.
enum Event : int {
  kConnect,
  kClientSends,
  kClientEnds,
  kClientStopsOrReads,
  kLocalSends,
  kRawDatagram,
  kControl,
  kRawCommand,
  kLineSpeaks,
  kLineBursts,
  kLineHangsUpOrReturns,
  kTimePasses,
  kWorkerSteps,
};
constexpr int kMany = 15;

std::string Do(Event event, int passes, const std::string& particulars = "") {
  return Raw({passes << 4 | event}) + particulars;
}

std::string Spoken(const std::string& bytes) {
  return Do(kLineSpeaks, 3, Raw({static_cast<int>(bytes.size())}) + bytes);
}

// Codes by their index in the script's table.
enum Code : int {
  kIrisStep = 3,
  kJoystick = 4,
  kGoToPreset = 6,
  kSetting = 14,
  kSearch = 15,
  kMenu = 16,
  kFocus = 17,
  kZoom = 18,
  kAssist = 29,
  kAfMode = 30,
};

std::string Command(Code code, int first, int second, int third, int passes = 3) {
  return Do(kControl, passes, Raw({code, first, second, third}));
}

std::string SlowClients() {
  std::string script = Do(kConnect, 3) + Do(kConnect, 3) + Do(kClientStopsOrReads, 0, Raw({1}));
  for (int i = 0; i < 40; ++i)
    script += Do(kLineBursts, kMany, Raw({200}));
  return script;
}

std::string ManyClients() {
  std::string script;
  for (int i = 0; i < 12; ++i)
    script += Do(kConnect, 2);
  for (int i = 0; i < 10; ++i)
    script += Do(kClientSends, 2, Raw({20 + i, i}));
  return script + Spoken("to all") + Do(kClientEnds, 3, Raw({0, 3})) +
         Do(kClientEnds, 3, Raw({1, 4}));
}

void AddCommon(Seeds* seeds, const std::string& target) {
  Seeds& s = *seeds;
  const std::string quiet(1, '\0');
  s[target + "/both_ways"] = quiet + Do(kConnect, 3) + Do(kClientSends, 3, Raw({4, 0})) +
                             Spoken("answer") + Do(kLocalSends, 3, Raw({5}));
  s[target + "/many_clients"] = quiet + ManyClients();
  s[target + "/slow_client"] = quiet + SlowClients() + Do(kClientStopsOrReads, kMany, Raw({1}));
  s[target + "/dropped_client"] =
      quiet + SlowClients() + Do(kTimePasses, 3, Raw({0xFF})) + Spoken("x");
  s[target + "/line_lost"] = quiet + Do(kConnect, 3) + Do(kClientSends, 1, Raw({9, 0})) +
                             Do(kLineHangsUpOrReturns, 3) + Do(kClientSends, 3, Raw({9, 0})) +
                             Do(kTimePasses, 3, Raw({0x1B})) + Do(kLineHangsUpOrReturns, 3) +
                             Do(kTimePasses, 3, Raw({0x1B})) + Do(kClientSends, 3, Raw({9, 0})) +
                             Spoken("back");
  s[target + "/stop"] = quiet + Do(kConnect, 3) + Do(kRawDatagram, 3, Raw({2, 0xFF, 0x7F}));
  s[target + "/update"] =
      quiet + Do(kRawCommand, 3, Raw({34, 0})) + Answer("\xDC") + Answer("\x12") + Answer("\x33");
  s[target + "/traced"] =
      Raw({1}) + Command(kMenu, 0, 0, 0) + Spoken("\xFF\x01") + Command(kZoom, 0, 0, 1);
}

void AddScripts(Seeds* seeds) {
  Seeds& s = *seeds;
  for (const char* target : {"relay_mode", "sd_mode", "hd_mode", "lens_mode"})
    AddCommon(seeds, target);
  s["relay_mode/joystick"] = Raw({0}) + Command(kJoystick, 40, 0xEC, 1) +
                             Command(kJoystick, 0, 0, 0) + Command(kGoToPreset, 7, 0, 0);
  s["sd_mode/replies"] = Raw({0}) + Spoken(Pelco({0, 0, 0, 0x12})) + Spoken("\xFF\x01\x02") +
                         Spoken(Pelco({0, 0, 0, 0x34})) + Command(kZoom, 0, 0, 0xFF);
  const std::string replies = Answer(HdAnswer(HD_VERSION, 0x21)) +
                              Answer(HdAnswer(HD_RESOLUTION_FLAG, 1)) +
                              Answer(HdAnswer(HD_SENSOR, 0x16));
  s["hd_mode/settings"] = Raw({0}) + replies + Command(kSetting, 5, 0, 0) +
                          Command(kSetting, 0xFF, 0, 0) + Command(kFocus, 1, 0, 0) +
                          Command(kZoom, 0, 0, 0xFF) + Command(kMenu, 0, 0, 0);
  s["hd_mode/updated"] = Raw({0}) + replies + Do(kRawCommand, 3, Raw({34, 0})) + Answer("\xDC") +
                         Answer("\x12") + Answer("\x33") + Answer("\x33") + Answer("\x15") +
                         Answer("\x33") + Answer("\x33") + Answer("\x33");
  s["hd_mode/known_module"] = Raw({0}) + replies + Do(kConnect, 2) + Spoken("\xFF\x01");
  const std::string reply = Answer(Register(I2M_READ, I2M_ADDR_VERSION, 0x81, 0x20));
  const std::string start = reply + reply;
  const std::string measures = Raw({2, 0, 0x10, 0}) + Raw({2, 0, 0x20, 0});
  s["lens_mode/drive"] = Raw({2}) + start + Command(kZoom, 0, 0, 100, kMany) +
                         Command(kZoom, 0, 0, 0, kMany) + Command(kFocus, 0x9C, 0, 0, 8) +
                         Command(kFocus, 0, 0, 0, 4);
  s["lens_mode/search"] =
      Raw({0}) + start + Command(kSearch, 0, 0, 0, kMany) + measures + measures + measures;
  s["lens_mode/assist"] =
      Raw({0}) + start + Command(kAssist, 0, 0, 0, kMany) + reply + reply + measures;
  s["lens_mode/micom_drives"] = Raw({0}) + start + Command(kAfMode, 0, 0, 0) +
                                Spoken(Register(I2M_WRITE, I2M_ADDR_FOCUS_VALUE_REQ, 0, 1)) +
                                measures + Command(kZoom, 0, 0, 1) + Command(kFocus, 1, 0, 0) +
                                Spoken(Register(I2M_WRITE, I2M_ADDR_MFZ_MODEL, 0, 0));
  std::string iris;
  for (int i = 0; i < 30; ++i)
    iris += Do(kWorkerSteps, 0) + Raw({8, 0, 4, 0, 0, 0x20, 0, 0, 0});
  s["lens_mode/iris_regulated"] = Raw({12}) + start + iris + Command(kIrisStep, 1, 0, 0);
  s["lens_mode/iris_open"] =
      Raw({4}) + start + Do(kWorkerSteps, 2) + Do(kWorkerSteps, 2) + Command(kIrisStep, 0xFF, 0, 0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: fuzz_seeds DIRECTORY\n");
    return EXIT_FAILURE;
  }
  Seeds seeds;
  AddFiles(&seeds);
  AddBlocks(&seeds);
  AddFrames(&seeds);
  AddAnswers(&seeds);
  AddScripts(&seeds);
  for (const auto& [name, bytes] : seeds) {
    const std::filesystem::path path = std::filesystem::path(argv[1]) / name;
    std::filesystem::create_directories(path.parent_path());
    sim::WriteTextFile(path.string(), bytes);
  }
  printf("%zu seeds\n", seeds.size());
  return EXIT_SUCCESS;
}
