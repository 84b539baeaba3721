// Image sensor and lens settings from the device's files: whether the P-iris can be regulated with
// this sensor, and whether its image tuning has anti-flicker enabled.
//
// The tuning is a JSON file whose name consists of sensor, lens and lens model. A missing or
// unreadable value counts as "no". The only message is a line on standard output for a file that is
// too long. Blocks on file I/O only and keeps no state between calls.
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
// Largest tuning file that is read, bytes. Parsing takes 10 to 40 times as much memory.
constexpr long ISP_FILE_MAX = 16L * 1024 * 1024;

// Buffer size of conf_get_value, NUL included; longer values are truncated.
constexpr size_t SENSOR_CONF_VALUE_SIZE = 256;
// Longest dotted path, characters.
constexpr size_t JSON_PATH_MAX = 127;

// Reads both values, each 1 or 0. Returns 0.
int read_sensor_lens_config(int32_t* antiflicker, int32_t* sensor_supported);

// Reads the value of the first line of the file whose key is exactly the formatted `key_format`.
// Splits lines into tokens as CUTIL_GetConfValue does, but does not truncate keys. If `as_text` is
// not 0, `out` is a char array of SENSOR_CONF_VALUE_SIZE, else an int32_t that receives the value
// as a number. Returns 0, or -1 with `out` unchanged if an argument is null, the file cannot be
// opened or no key matches.
[[gnu::format(printf, 4, 5)]] int conf_get_value(const char* path, void* out, int as_text,
                                                 const char* key_format, ...);

// Reads a regular file of at most ISP_FILE_MAX bytes. Returns its text, which the caller frees, or
// null on failure.
char* json_load_text(const char* path);

// Follows the member names between the dots of `path`, up to its end or an empty name. Returns the
// value found (owned by `object`), or null if a member is missing or the path is longer than
// JSON_PATH_MAX.
json_object* json_get_path(json_object* object, const char* path);

// Copies the text of the value at `path`, NUL-terminated and truncated to out_size - 1 characters.
// Returns 0, or -1 if an argument is null or there is no value at `path`.
int json_get_string_path(json_object* object, const char* path, char* out, size_t out_size);
