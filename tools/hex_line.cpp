#include "tools/hex_line.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "serial/serial_io.h"

namespace tools {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kBetweenBytes = " \t\r\n,;:-{}[]()\"'\\";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";

struct TagRow {
  const char* tag;
  Direction direction;
};

constexpr std::array<TagRow, 2> kTags = {{
    {SERIAL_TRACE_SEND, Direction::kToDevice},
    {SERIAL_TRACE_RECV, Direction::kFromDevice},
}};

// Takes the next piece of `text` up to one of `ends`; "" when there is none.
std::string_view TakeToken(std::string_view* text, std::string_view ends) {
  text->remove_prefix(std::min(text->find_first_not_of(ends), text->size()));
  const std::string_view token = text->substr(0, text->find_first_of(ends));
  text->remove_prefix(token.size());
  return token;
}

std::string_view Trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

uint8_t ByteOf(std::string_view digits) {
  uint8_t byte = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
  return byte;
}

// Appends the bytes of one token. Returns what is wrong with it, or "".
std::string AppendToken(std::string_view token, std::vector<uint8_t>* bytes) {
  constexpr size_t kDigits = 2;
  std::string quoted = "'";
  quoted.append(token).append("'");
  const bool has_mark = token.starts_with("0x") || token.starts_with("0X");
  if (has_mark) {
    token.remove_prefix(2);
  } else if (token.starts_with('x')) {  // of "\x"
    token.remove_prefix(1);
  }
  if (token.empty() || token.find_first_not_of(kHexDigits) != std::string_view::npos) {
    return quoted + " is not hexadecimal";
  }
  if (has_mark && token.size() == 1) {
    bytes->push_back(ByteOf(token));
    return "";
  }
  if (token.size() % kDigits != 0) return quoted + " ends in half a byte";
  for (; !token.empty(); token.remove_prefix(kDigits))
    bytes->push_back(ByteOf(token.substr(0, kDigits)));
  return "";
}

void ReadBytes(std::string_view text, HexLine* line) {
  while (line->problem.empty()) {
    const std::string_view token = TakeToken(&text, kBetweenBytes);
    if (token.empty()) return;
    line->problem = AppendToken(token, &line->bytes);
  }
}

// What goes before the bytes of a trace line: time stamp, tag, length and a colon. Returns false
// for any other line.
bool TakeTraceHead(std::string_view* text, HexLine* line, int* length) {
  const std::string_view whole = *text;
  while (true) {
    const std::string_view token = TakeToken(text, kBlanks);
    if (token.empty()) return false;
    const auto* row = std::ranges::find(kTags, token, &TagRow::tag);
    if (row == kTags.end()) continue;
    const std::string_view head = TakeToken(text, kBlanks);
    const auto [end, error] = std::from_chars(head.data(), head.data() + head.size(), *length);
    if (error != std::errc() || end + 1 != head.data() + head.size() || *end != ':') return false;
    line->is_trace = true;
    line->direction = row->direction;
    std::string_view time = whole.substr(0, static_cast<size_t>(token.data() - whole.data()));
    // Other output may stand before it on the line.
    constexpr size_t kMonthDigits = 2;
    const size_t slash = time.rfind('/');
    if (slash != std::string_view::npos && slash >= kMonthDigits) {
      time.remove_prefix(slash - kMonthDigits);
    }
    line->time = Trimmed(time);
    return true;
  }
}

// A row of a dump less its offset and its text.
std::string_view DumpBytes(std::string_view text) {
  constexpr size_t kOffsetDigits = 8;
  const size_t bar = text.find('|');
  if (bar == std::string_view::npos) return text;
  std::string_view bytes = text.substr(0, bar);
  std::string_view rest = bytes;
  return TakeToken(&rest, kBlanks).size() == kOffsetDigits ? rest : bytes;
}

}  // namespace

HexLine ReadHexLine(std::string_view text) {
  HexLine line;
  std::string_view rest = text;
  int length = 0;
  if (!TakeTraceHead(&rest, &line, &length)) {
    ReadBytes(DumpBytes(text), &line);
    return line;
  }
  ReadBytes(rest, &line);
  // A read that failed has a negative length and no bytes.
  if (line.problem.empty() && std::max(length, 0) != static_cast<int>(line.bytes.size())) {
    line.problem = "the trace line says " + std::to_string(length) + " bytes and has " +
                   std::to_string(line.bytes.size());
  }
  return line;
}

}  // namespace tools
