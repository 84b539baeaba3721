#include "lens/sensor_config.h"

#include <json-c/json.h>
#include <malloc.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lens/video_source.h"
#include "util/conf_file.h"
#include "util/regular_file.h"

namespace {

constexpr size_t kKeySize = 256;
constexpr size_t kIspFileNameSize = 1024;
constexpr size_t kFlagTextSize = 16;

using ConfText = char[SENSOR_CONF_VALUE_SIZE];

// Sensors of lenses whose P-iris is regulated.
constexpr std::array<const char*, 2> kSupportedSensors = {"IMX123", "IMX124"};

// Copies `text`, truncated to the buffer and NUL-terminated.
void CopyText(char* out, size_t out_size, const char* text) {
  const size_t length = std::min(strlen(text), out_size - 1);
  memcpy(out, text, length);
  out[length] = '\0';
}

void ToLower(char* text) {
  for (; *text != '\0'; ++text)
    *text = static_cast<char>(tolower(static_cast<unsigned char>(*text)));
}

bool IsSupported(const char* sensor) {
  return std::any_of(kSupportedSensors.begin(), kSupportedSensors.end(),
                     [sensor](const char* name) { return strcasecmp(name, sensor) == 0; });
}

// --- Configuration lines -----------------------------------------------------------------------

// Large enough that neither key nor value of a line is truncated.
struct ConfLine {
  char text[CUTIL_CONF_LINE_SIZE];
  char key[CUTIL_CONF_LINE_SIZE];
  char value[CUTIL_CONF_VALUE_SIZE];
};

// Splits the line's text. Returns false if it has no key and value.
bool Split(ConfLine* line) {
  line->value[0] = '\0';
  const char* rest = CUTIL_ParseToken(line->key, sizeof(line->key), line->text);
  if (rest == nullptr || *rest == '#' || *rest == '[') return false;
  CUTIL_ParseToken(line->value, sizeof(line->value), rest);
  return true;
}

// Returns false if no line has the key.
bool FindLine(FILE* file, const char* key, ConfLine* line) {
  while (fgets(line->text, sizeof(line->text), file) != nullptr) {
    if (Split(line) && strcmp(line->key, key) == 0) return true;
  }
  return false;
}

// --- The tuning file ---------------------------------------------------------------------------

// Returns the length of an open file, at most ISP_FILE_MAX, or -1 on failure.
long LengthOf(FILE* file) {
  struct stat status;
  if (fstat(fileno(file), &status) != 0) return -1;
  return std::min(static_cast<long>(status.st_size), ISP_FILE_MAX);
}

int32_t ReadAntiflicker(const char* text) {
  json_object* tuning = json_tokener_parse(text);
  char flag[kFlagTextSize];
  const bool found = json_get_string_path(tuning, ISP_ANTIFLICKER_PATH, flag, sizeof(flag)) == 0;
  if (tuning != nullptr) json_object_put(tuning);
  return found && strcasecmp(flag, "true") == 0 ? 1 : 0;
}

}  // namespace

int read_sensor_lens_config(int32_t* antiflicker, int32_t* sensor_supported) {
  *antiflicker = 0;
  *sensor_supported = 0;
  ConfText sensor = {};
  ConfText lens = {};
  ConfText lens_model = {};
  conf_get_value(VIDEO_SOURCE_PATH, sensor, 1, "%s", VIDEO_SOURCE_SENSOR_KEY);
  conf_get_value(LENS_CAPABILITIES_PATH, lens, 1, "%s", LENS_NAME_KEY);
  conf_get_value(LENS_CAPABILITIES_PATH, lens_model, 1, "%s", LENS_MODEL_KEY);
  if (IsSupported(sensor)) *sensor_supported = 1;
  ToLower(sensor);

  char path[kIspFileNameSize];
  snprintf(path, sizeof(path), ISP_FILE_FORMAT, sensor, lens, lens_model);
  char* text = json_load_text(path);
  if (text == nullptr) return 0;
  *antiflicker = ReadAntiflicker(text);
  free(text);
  // Parsing allocates up to 40 times the file's size in small pieces, which malloc would keep.
  malloc_trim(0);
  return 0;
}

int conf_get_value(const char* path, void* out, int as_text, const char* key_format, ...) {
  if (path == nullptr || out == nullptr || key_format == nullptr) return -1;
  char key[kKeySize];
  va_list arguments;
  va_start(arguments, key_format);
  vsnprintf(key, sizeof(key), key_format, arguments);
  va_end(arguments);

  FILE* file = CUTIL_OpenSettings(path);
  if (file == nullptr) return -1;
  ConfLine line;
  const bool found = FindLine(file, key, &line);
  fclose(file);
  if (!found) return -1;
  if (as_text != 0) {
    CopyText(static_cast<char*>(out), SENSOR_CONF_VALUE_SIZE, line.value);
  } else {
    *static_cast<int32_t*>(out) = static_cast<int32_t>(strtol(line.value, nullptr, 10));
  }
  return 0;
}

char* json_load_text(const char* path) {
  FILE* file = CUTIL_OpenSettings(path, ISP_FILE_MAX);
  if (file == nullptr) return nullptr;
  const long length = LengthOf(file);
  char* text = length >= 0 ? static_cast<char*>(malloc(static_cast<size_t>(length) + 1)) : nullptr;
  if (text != nullptr) {
    const size_t wanted = static_cast<size_t>(length);
    text[wanted] = '\0';
    if (fread(text, 1, wanted, file) != wanted) {
      free(text);
      text = nullptr;
    }
  }
  fclose(file);
  return text;
}

json_object* json_get_path(json_object* object, const char* path) {
  if (object == nullptr || path == nullptr || strlen(path) > JSON_PATH_MAX) return nullptr;
  char name[JSON_PATH_MAX + 1];
  while (object != nullptr) {
    const size_t length = strcspn(path, ".");
    if (length == 0) break;
    CopyText(name, length + 1, path);
    object = json_object_object_get(object, name);
    path += length;
    if (*path == '.') ++path;
  }
  return object;
}

int json_get_string_path(json_object* object, const char* path, char* out, size_t out_size) {
  if (object == nullptr || path == nullptr || out == nullptr || out_size == 0) return -1;
  json_object* value = json_get_path(object, path);
  if (value == nullptr) return -1;
  const char* text = json_object_get_string(value);
  if (text == nullptr) return -1;
  CopyText(out, out_size, text);
  return 0;
}
