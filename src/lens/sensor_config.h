// What the device's files say about image sensor and lens: whether the P-iris regulation is meant
// for this sensor, and whether its image tuning has anti-flicker enabled.
//
// The tuning is a JSON file whose name is made of sensor, lens and lens model. Whatever is missing
// or cannot be read counts as "no"; nothing is printed but a line on standard output for a file
// that is too long. Blocks on file I/O only; nothing is kept.
#pragma once

#include <cstddef>
#include <cstdint>

struct json_object;

constexpr char LENS_CAPABILITIES_PATH[] = "/etc/capabilities.conf";
constexpr char LENS_NAME_KEY[] = "Camera.1.Lens";
constexpr char LENS_MODEL_KEY[] = "Camera.1.LensModel";

// The tuning file: sensor name in lower case, lens name, lens model name.
constexpr char ISP_FILE_FORMAT[] = "/etc/isp/isp_%s_%s_%s.json";
constexpr char ISP_ANTIFLICKER_PATH[] = "All.AE.Antiflicker.Enable.VALUE";
// A larger tuning file is not read. The parser takes 10 to 40 times as much memory meanwhile.
constexpr long ISP_FILE_MAX = 16L * 1024 * 1024;

// A value of conf_get_value, its NUL included; a longer one is cut.
constexpr size_t SENSOR_CONF_VALUE_SIZE = 256;
// Characters of a dotted path.
constexpr size_t JSON_PATH_MAX = 127;

// Reads both facts. Each is 1 or 0. Returns 0.
int read_sensor_lens_config(int32_t* antiflicker, int32_t* sensor_supported);

// Reads the value of the first line of the file whose key is exactly the one that `key_format`
// gives; lines are split into tokens as CUTIL_GetConfValue does, but keys are not cut. With
// `as_text` not 0, `out` is a char array of SENSOR_CONF_VALUE_SIZE; else an int32_t that receives
// the value's number. Returns 0, or -1 with `out` as it was when an argument is null, the file
// cannot be opened or no key matches.
[[gnu::format(printf, 4, 5)]] int conf_get_value(const char* path, void* out, int as_text,
                                                 const char* key_format, ...);

// Reads a whole regular file of at most ISP_FILE_MAX bytes. Returns its text, which the caller
// frees, or null.
char* json_load_text(const char* path);

// Walks down members by the names between the dots, up to the end of the path or an empty name.
// Returns what is there (it belongs to `object`), or null when a member is missing or the path
// is longer than JSON_PATH_MAX.
json_object* json_get_path(json_object* object, const char* path);

// Copies the text of the value at a path, NUL-terminated and cut to out_size - 1 characters.
// Returns 0, or -1 when an argument is null or the path leads nowhere.
int json_get_string_path(json_object* object, const char* path, char* out, size_t out_size);
