// In: a key, a value and a settings file for CUTIL_SetConfValue, with a line feed between.
// Holds: the file becomes exactly what replacing the key's lines, or appending one, gives; every
// other line stays; a reader finds the value unless it takes an earlier line for the key that the
// writer does not; nothing is left behind.
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

// The file in the pieces that the writer looks at: lines, long ones cut.
std::vector<std::string> PiecesOf(const std::string& file) {
  std::vector<std::string> pieces;
  for (size_t at = 0; at < file.size(); at += pieces.back().size()) {
    const std::string most = file.substr(at, CUTIL_CONF_WRITE_LINE_SIZE - 1);
    const size_t end = most.find('\n');
    pieces.push_back(end == std::string::npos ? most : most.substr(0, end + 1));
  }
  return pieces;
}

bool IsLineOf(const std::string& key, const std::string& piece) {
  const std::string text = piece.substr(0, piece.find('\0'));
  const size_t end = text.find_first_of("#= ");
  if (end != std::string::npos && text[end] == '#') return text == key;
  return text.substr(0, end) == key;
}

struct Rewritten {
  std::string file;    // what the file has to be
  std::string others;  // without the lines of the key
};

Rewritten Rewrite(const std::string& file, const std::string& key, const std::string& value) {
  const std::string pair = key + '=' + value + '\n';
  Rewritten result;
  bool found = false;
  bool at_line_start = true;
  for (const std::string& piece : PiecesOf(file)) {
    const bool is_its = IsLineOf(key, piece);
    result.file += is_its ? pair : piece;
    result.others += is_its ? "" : piece;
    at_line_start = is_its || piece.back() == '\n';
    found |= is_its;
  }
  if (!found) result.file += (at_line_start ? "" : "\n") + pair;
  return result;
}

// A word that reader and writer take alike.
bool IsPlain(const std::string& word) {
  const char* const letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-/";
  return !word.empty() && word.size() < 64 && word.find_first_not_of(letters) == std::string::npos;
}

bool ReaderHas(const std::string& key, std::string* value) {
  char text[SENSOR_CONF_VALUE_SIZE] = {};
  const bool found = conf_get_value(kPath, text, 1, "%s", key.c_str()) == 0;
  *value = text;
  return found;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const std::string key = input.Line();
  const std::string value = input.Line();
  const std::string before = fuzz::Text(input.Rest());
  const Rewritten wanted = Rewrite(before, key, value);

  fuzz::PutFile(kPath, before);
  FUZZ_CHECK(CUTIL_SetConfValue(kPath, key.c_str(), value.c_str()) == 0);
  FUZZ_CHECK(fuzz::GetFile(kPath) == wanted.file);
  FUZZ_CHECK(access(CUTIL_TEMP_CONF_PATH, F_OK) != 0);

  if (!IsPlain(key) || !IsPlain(value)) return 0;
  std::string read;
  FUZZ_CHECK(ReaderHas(key, &read));
  fuzz::PutFile(kPath, wanted.others);
  std::string foreign;
  if (!ReaderHas(key, &foreign)) FUZZ_CHECK(read == value);
  return 0;
}
