// In: a buffer size, then one line of a settings file as CUTIL_ParseToken gets it.
// Holds: nothing outside line and buffer is touched; a token is a part of the line without '=' and
// line end; where none begins the buffer stays as it was; a small buffer gets the same, cut.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/target.h"
#include "util/conf_file.h"

namespace {

constexpr char kUntouched = '\x7F';

struct Token {
  const char* rest;
  std::vector<char> out;
};

Token Parse(const std::vector<char>& line, size_t out_size) {
  Token token = {.rest = nullptr, .out = std::vector<char>(out_size, kUntouched)};
  token.rest = CUTIL_ParseToken(token.out.data(), out_size, line.data());
  return token;
}

void CheckNoToken(const Token& token) {
  for (const char c : token.out)
    FUZZ_CHECK(c == kUntouched);
}

void CheckToken(const std::string& line, size_t first, size_t rest, const std::string& text) {
  FUZZ_CHECK(rest > first && rest <= line.size());
  const char ended_by = rest == line.size() ? '\0' : line[rest];
  FUZZ_CHECK(line[rest - 1] == '=' || ended_by == '\0' || ended_by == '\n' || ended_by == '\r');
  FUZZ_CHECK(text.find_first_of("=\n\r") == std::string::npos);
  const size_t at = line.find(text, first);
  FUZZ_CHECK(at != std::string::npos && at + text.size() <= rest);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const size_t out_size = input.Byte() % 80;
  const std::string rest = fuzz::Text(input.Rest());
  const std::string line = rest.substr(0, rest.find('\0'));
  // Of its exact size, so that a look behind the end is noticed.
  std::vector<char> exact(line.begin(), line.end());
  exact.push_back('\0');

  const Token whole = Parse(exact, line.size() + 1);
  const Token cut = Parse(exact, out_size);
  FUZZ_CHECK(cut.rest == whole.rest);
  const size_t first = line.find_first_not_of(" \t");
  const bool is_text = first != std::string::npos && line[first] != '\n' && line[first] != '\r';
  if (!is_text || line[first] == '#' || line[first] == '[') {
    FUZZ_CHECK(whole.rest == (is_text ? exact.data() + first : nullptr));
    CheckNoToken(whole);
    CheckNoToken(cut);
    return 0;
  }
  const std::string text = whole.out.data();
  CheckToken(line, first, static_cast<size_t>(whole.rest - exact.data()), text);
  if (out_size > 0) FUZZ_CHECK(text.substr(0, out_size - 1) == cut.out.data());
  return 0;
}
