// In: a key, a line feed, then a settings file for CUTIL_GetConfValue and conf_get_value.
// Holds: a value is terminated and part of the file; a small buffer gets the same value, cut; a key
// found whole is found as a beginning; the number of a value is that of its text.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/files.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "lens/sensor_config.h"
#include "util/conf_file.h"

namespace {

constexpr char kPath[] = "/etc/fuzz.conf";

void CheckCut(const std::string& key, int result, const std::string& value, size_t value_size) {
  std::vector<char> cut(value_size, 'x');
  FUZZ_CHECK(CUTIL_GetConfValue(kPath, key.c_str(), cut.data(), value_size) == result);
  if (value_size > 0) FUZZ_CHECK(value.substr(0, value_size - 1) == cut.data());
}

void CheckExact(const std::string& key, int prefix_result) {
  char text[SENSOR_CONF_VALUE_SIZE] = {};
  int32_t number = 0;
  const int result = conf_get_value(kPath, text, 1, "%s", key.c_str());
  FUZZ_CHECK(conf_get_value(kPath, &number, 0, "%s", key.c_str()) == result);
  if (result != 0) return;
  FUZZ_CHECK(memchr(text, '\0', sizeof(text)) != nullptr);
  if (key.size() < CUTIL_CONF_KEY_SIZE) FUZZ_CHECK(prefix_result == 0);
  if (strlen(text) < sizeof(text) - 1) {
    FUZZ_CHECK(number == static_cast<int32_t>(strtol(text, nullptr, 10)));
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const std::string key = input.Line();
  const size_t cut_size = input.Byte() % 64;
  const std::string file = fuzz::Text(input.Rest());
  fuzz::PutFile(kPath, file);

  std::vector<char> value(CUTIL_CONF_VALUE_SIZE, 'x');
  const int result = CUTIL_GetConfValue(kPath, key.c_str(), value.data(), value.size());
  FUZZ_CHECK(result == 0 || result == -1);
  FUZZ_CHECK(memchr(value.data(), '\0', value.size()) != nullptr);
  FUZZ_CHECK(file.find(value.data()) != std::string::npos);
  if (result == 0) FUZZ_CHECK(file.find(key) != std::string::npos);
  CheckCut(key, result, value.data(), cut_size);
  CheckExact(key, result);
  return 0;
}
