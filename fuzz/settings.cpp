// Input: the kind of a settings file (kKinds), the texts and the buffer size for that kind, then
// the file. Each kind's check states its properties.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cmmap/param_block.h"
#include "daemon/model_family.h"
#include "daemon/settings.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "lens/i2m_dispatch.h"
#include "lens/sensor_config.h"
#include "lens/video_source.h"
#include "relay/ptz_tables.h"
#include "sim/device.h"
#include "tests/world/lens_line.h"
#include "util/conf_file.h"

namespace {

constexpr char kConf[] = "/etc/fuzz.conf";
constexpr char kTuning[] = "/etc/isp/isp_imx123_m12_2812.json";

struct Case {
  std::string texts[2];
  size_t size;       // of a buffer
  std::string file;  // contents of the file at the kind's path
};

bool IsTerminated(const std::vector<char>& text) {
  return std::ranges::find(text, '\0') != text.end();
}

bool IsCutOf(const std::string& text, const std::vector<char>& cut) {
  return cut.empty() || (IsTerminated(cut) && text.substr(0, cut.size() - 1) == cut.data());
}

// --- Values ------------------------------------------------------------------------------------

// Reads the value of the first line with exactly this key. Returns false if there is none.
bool FindsExactly(const std::string& key, std::string* value) {
  std::vector<char> text(SENSOR_CONF_VALUE_SIZE, '\0');
  int32_t number = 0;
  const int result = conf_get_value(kConf, text.data(), 1, "%s", key.c_str());
  FUZZ_CHECK(conf_get_value(kConf, &number, 0, "%s", key.c_str()) == result);
  FUZZ_CHECK(IsTerminated(text));
  *value = text.data();
  const bool is_whole = result == 0 && value->size() < SENSOR_CONF_VALUE_SIZE - 1;
  if (is_whole) FUZZ_CHECK(number == static_cast<int32_t>(strtol(value->c_str(), nullptr, 10)));
  return result == 0;
}

// A value is NUL-terminated and part of the file; a small buffer receives the truncated value; an
// exact key is also found as a prefix; the number equals that of the text.
void CheckValue(const Case& input) {
  const std::string& key = input.texts[0];
  std::vector<char> value(CUTIL_CONF_VALUE_SIZE, 'x');
  const int result = CUTIL_GetConfValue(kConf, key.c_str(), value.data(), value.size());
  FUZZ_CHECK((result == 0 || result == -1) && IsTerminated(value));
  FUZZ_CHECK(input.file.find(value.data()) != std::string::npos);
  if (result == 0) FUZZ_CHECK(input.file.find(key) != std::string::npos);

  std::vector<char> cut(input.size % 64, 'x');
  FUZZ_CHECK(CUTIL_GetConfValue(kConf, key.c_str(), cut.data(), cut.size()) == result);
  FUZZ_CHECK(IsCutOf(value.data(), cut));
  std::string exact;
  if (FindsExactly(key, &exact) && key.size() < CUTIL_CONF_KEY_SIZE) FUZZ_CHECK(result == 0);
}

// --- Rewritten values --------------------------------------------------------------------------

bool IsLineOf(const std::string& key, const std::string& piece) {
  const std::string text = piece.substr(0, piece.find('\0'));
  const size_t end = text.find_first_of("#= ");
  if (end != std::string::npos && text[end] == '#') return text == key;
  return text.substr(0, end) == key;
}

// True for a word that the reader and the writer interpret alike.
bool IsPlain(const std::string& word) {
  return !word.empty() && word.size() < 64 && std::ranges::all_of(word, [](unsigned char c) {
    return isalnum(c) != 0 || strchr("._-/", c) != nullptr;
  });
}

// The new file equals the old one with the key's lines replaced, or with one line appended. The
// reader finds the new value, unless an earlier line matches the key by the reader's rule but not
// by the writer's. No temporary file remains.
void CheckRewrite(const Case& input) {
  const auto& [key, value] = input.texts;
  const std::string pair = key + '=' + value + '\n';
  std::string wanted;
  std::string others;  // without the lines of the key
  bool at_line_start = true;
  for (size_t at = 0; at < input.file.size();) {
    const std::string rest = input.file.substr(at, CUTIL_CONF_WRITE_LINE_SIZE - 1);
    const std::string piece = rest.substr(0, std::min(rest.find('\n'), rest.size()) + 1);
    at += piece.size();
    const bool is_its = IsLineOf(key, piece);
    wanted += is_its ? pair : piece;
    others += is_its ? "" : piece;
    at_line_start = is_its || piece.back() == '\n';
  }
  if (others == input.file) wanted += (at_line_start ? "" : "\n") + pair;

  FUZZ_CHECK(CUTIL_SetConfValue(kConf, key.c_str(), value.c_str()) == 0);
  FUZZ_CHECK(sim::ReadTextFile(kConf) == wanted);
  FUZZ_CHECK(access(CUTIL_TEMP_CONF_PATH, F_OK) != 0);

  if (!IsPlain(key) || !IsPlain(value)) return;
  std::string read;
  FUZZ_CHECK(FindsExactly(key, &read));
  sim::WriteTextFile(kConf, others);
  std::string foreign;
  if (!FindsExactly(key, &foreign)) FUZZ_CHECK(read == value);
}

// --- Tokens ------------------------------------------------------------------------------------

constexpr char kUntouched = '\x7F';

// The parser stays within line and buffer. A token is a part of the line without '=' and line end.
// Without a token, the buffer is unchanged. A small buffer receives the truncated token.
void CheckToken(const Case& input) {
  const std::string line = input.file.c_str();
  // A copy of the exact size, so that sanitizers detect reads beyond the end.
  const std::vector<char> exact(line.c_str(), line.c_str() + line.size() + 1);
  std::vector<char> whole(line.size() + 1, kUntouched);
  std::vector<char> cut(input.size % 80, kUntouched);
  const char* const rest = CUTIL_ParseToken(whole.data(), whole.size(), exact.data());
  FUZZ_CHECK(CUTIL_ParseToken(cut.data(), cut.size(), exact.data()) == rest);

  const char* const first = exact.data() + strspn(exact.data(), " \t");
  if (strchr("\n\r#[", *first) != nullptr) {
    FUZZ_CHECK(rest == (*first == '#' || *first == '[' ? first : nullptr));
    whole.insert(whole.end(), cut.begin(), cut.end());
    FUZZ_CHECK(std::ranges::count(whole, kUntouched) == std::ssize(whole));
    return;
  }
  FUZZ_CHECK(rest > first && rest <= &exact.back() && IsTerminated(whole));
  FUZZ_CHECK(rest[-1] == '=' || strchr("\n\r", *rest) != nullptr);
  const std::string text = whole.data();
  FUZZ_CHECK(text.find_first_of("=\n\r") == std::string::npos);
  FUZZ_CHECK(std::string(first, rest).find(text) != std::string::npos);
  FUZZ_CHECK(IsCutOf(text, cut));
}

// --- The tuning file and the sensor ------------------------------------------------------------

// The flag is set only if the file says "true"; an invalid JSON file counts as false.
void CheckTuning(const Case& input) {
  sim::WriteTextFile(VIDEO_SOURCE_PATH, "VideoSource.1.Dev=IMX123\n");
  sim::WriteTextFile(LENS_CAPABILITIES_PATH, "Camera.1.LensModel=2812\nCamera.1.Lens=m12\n");
  char* text = json_load_text(kTuning);
  FUZZ_CHECK(text != nullptr && memcmp(text, input.file.c_str(), input.file.size() + 1) == 0);
  int32_t antiflicker = -1;
  int32_t supported = -1;
  FUZZ_CHECK(read_sensor_lens_config(&antiflicker, &supported) == 0);
  FUZZ_CHECK(supported == 1 && (antiflicker == 0 || antiflicker == 1));
  // The letters may be escaped, but the value requires its path.
  if (antiflicker == 1) FUZZ_CHECK(strchr(text, '{') != nullptr);
  free(text);
}

// The sensor is recognized only by one of its names. The micom's lens query receives a valid pair
// of codes or no answer. The input holds two files, separated by the first form feed.
void CheckSensor(const Case& input) {
  const size_t cut = std::min(input.file.find('\f'), input.file.size());
  std::string source = input.file.substr(0, cut);
  sim::WriteTextFile(VIDEO_SOURCE_PATH, source);
  sim::WriteTextFile(LENS_CAPABILITIES_PATH,
                     input.file.substr(std::min(cut + 1, input.file.size())));
  unlink(kTuning);
  int32_t antiflicker = -1;
  int32_t supported = -1;
  FUZZ_CHECK(read_sensor_lens_config(&antiflicker, &supported) == 0);
  FUZZ_CHECK(antiflicker == 0 && (supported == 0 || supported == 1));
  std::ranges::replace(source, '\0', ' ');
  if (supported == 1) FUZZ_CHECK(strcasestr(source.c_str(), "imx12") != nullptr);

  LensLine line;
  i2m_dispatch(I2M_ADDR_MFZ_MODEL, 0, 0);
  const auto writes = line.TakeWrites();
  FUZZ_CHECK(writes.size() <= 1);
  for (const std::string& frame : writes) {
    const auto is_frame = [&frame](const auto& codes) {
      return frame == sim::Hex(I2mBuild(I2M_WRITE, I2M_ADDR_MFZ_MODEL, codes.first, codes.second));
    };
    constexpr std::pair<uint8_t, uint8_t> kSensorsAndLenses[] = {{0, 0}, {1, 1}, {2, 1}, {3, 2}};
    FUZZ_CHECK(std::ranges::any_of(kSensorsAndLenses, is_frame));
  }
}

// --- The parameter block -----------------------------------------------------------------------

constexpr size_t kLongestName = 200;

void CheckSettings(const Rs232Settings& settings, const sim::DeviceConfig& device) {
  const auto port = static_cast<int16_t>(device.ptz_port);
  const std::string model = device.model.substr(0, RS232_MODEL_NAME_SIZE - 1);
  FUZZ_CHECK(settings.baud_rate == device.baud_rate && settings.data_bits == device.data_bits &&
             settings.stop_bits == device.stop_bits);
  FUZZ_CHECK(settings.parity == (device.parity == 1 || device.parity == 2 ? device.parity : 0));
  FUZZ_CHECK(settings.ptz_port == (device.ptz_enable == 1 ? port : 0));
  FUZZ_CHECK(settings.model == model);
  FUZZ_CHECK(!PtzTableForModel(settings.model).empty());
  FUZZ_CHECK(IsSdModuleModel(settings.model) + IsHdModuleModel(settings.model) +
                 IsMotorizedLensModel(settings.model) + IsQb710Model(settings.model) <=
             1);
}

// Input: the number of missing bytes of the block, its words, a line of the port table, the model
// name. The settings equal those of the block, with values out of range replaced. A block that is
// too short or has too few ports is rejected. At most one mode matches a model.
void CheckParamBlock(const Case& input) {
  fuzz::Input fields(reinterpret_cast<const uint8_t*>(input.file.data()), input.file.size());
  const uint16_t missing = fields.Word();
  sim::DeviceConfig device;
  for (int32_t* word : {&device.serial_count, &device.baud_rate, &device.parity, &device.data_bits,
                        &device.stop_bits, &device.ptz_enable, &device.ptz_port})
    *word = static_cast<int32_t>(fields.Long());
  sim::WriteTextFile(UDP_PORT_TABLE_PATH, std::string(UDP_PORT_KEY) + "=" + fields.Line() + "\n");
  device.model = fuzz::Text(fields.Bytes(kLongestName)).c_str();
  const std::string block = fuzz::Text(sim::BuildParamBlock(device));
  const bool is_short = missing > 0 && missing <= block.size();
  sim::WriteTextFile(PARAM_BLOCK_PATH, block.substr(0, block.size() - (is_short ? missing : 0)));

  Rs232Settings settings;
  memset(&settings, 0x5A, sizeof(settings));
  const bool is_taken = ReadSettings(&settings) == 0;
  FUZZ_CHECK(is_taken == (!is_short && device.serial_count >= 2));
  if (is_taken) CheckSettings(settings, device);
}

// --- All of them -------------------------------------------------------------------------------

struct Kind {
  const char* path;
  size_t texts;   // number of input lines before the file
  bool has_size;  // followed by a byte with the buffer size
  void (*check)(const Case& input);
};

constexpr Kind kKinds[] = {
    {kConf, 1, true, CheckValue},
    {kConf, 2, false, CheckRewrite},
    {kConf, 0, true, CheckToken},
    {kTuning, 0, false, CheckTuning},
    {VIDEO_SOURCE_PATH, 0, false, CheckSensor},
    {PARAM_BLOCK_PATH, 0, false, CheckParamBlock},
};

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  mkdir("/etc/isp", 0755);
  fuzz::Input bytes(data, size);
  const Kind& kind = kKinds[bytes.Byte() % std::size(kKinds)];
  Case input;
  for (size_t i = 0; i < kind.texts; ++i)
    input.texts[i] = bytes.Line();
  input.size = kind.has_size ? bytes.Byte() : 0;
  input.file = fuzz::Text(bytes.Rest());
  sim::WriteTextFile(kind.path, input.file);
  kind.check(input);
  return 0;
}
