// In: a dotted path and a buffer size, then an image tuning file.
// Holds: the flag is set only where the file says "true"; text taken by a path is terminated and
// cut to its buffer; a file that is no JSON counts as "no".
#include <json-c/json.h>
#include <strings.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/files.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "lens/sensor_config.h"
#include "lens/video_source.h"

namespace {

constexpr char kTuning[] = "/etc/isp/isp_imx123_m12_2812.json";

void InstallSensor() {
  static bool is_installed = false;
  if (is_installed) return;
  is_installed = true;
  mkdir("/etc/isp", 0755);
  fuzz::PutFile(VIDEO_SOURCE_PATH, "VideoSource.1.Dev=IMX123\n");
  fuzz::PutFile(LENS_CAPABILITIES_PATH, "Camera.1.LensModel=2812\nCamera.1.Lens=m12\n");
}

void CheckPath(const char* text, const std::string& path, size_t out_size) {
  json_object* tuning = json_tokener_parse(text);
  std::vector<char> out(out_size, 'x');
  if (json_get_string_path(tuning, path.c_str(), out.data(), out_size) == 0) {
    FUZZ_CHECK(memchr(out.data(), '\0', out_size) != nullptr);
    FUZZ_CHECK(json_get_path(tuning, path.c_str()) != nullptr);
    FUZZ_CHECK(path.size() <= JSON_PATH_MAX);
  }
  if (tuning != nullptr) json_object_put(tuning);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  InstallSensor();
  fuzz::Input input(data, size);
  const std::string path = input.Line();
  const size_t out_size = input.Byte() % 32;
  const std::string file = fuzz::Text(input.Rest());
  fuzz::PutFile(kTuning, file);

  char* text = json_load_text(kTuning);
  FUZZ_CHECK(text != nullptr && memcmp(text, file.c_str(), file.size() + 1) == 0);
  CheckPath(text, path, out_size);
  int32_t antiflicker = -1;
  int32_t supported = -1;
  FUZZ_CHECK(read_sensor_lens_config(&antiflicker, &supported) == 0);
  FUZZ_CHECK(supported == 1);
  FUZZ_CHECK(antiflicker == 0 || antiflicker == 1);
  // Its letters may be escaped, but the value cannot be had without its path.
  if (antiflicker == 1) FUZZ_CHECK(strchr(text, '{') != nullptr);
  free(text);
  return 0;
}
