#include "tools/hex_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>

#include "serial/serial_io.h"
#include "tools/parse.h"

namespace tools {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";
constexpr size_t kOffsetDigits = 8;

struct TagRow {
  const char* tag;
  Direction direction;
};

constexpr std::array<TagRow, 2> kTags = {{
    {SERIAL_TRACE_SEND, Direction::kToDevice},
    {SERIAL_TRACE_RECV, Direction::kFromDevice},
}};

std::string_view Trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Reads what precedes the bytes of a trace line: time stamp, tag, length and a colon. Returns false
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
    // Other output may precede it on the line.
    constexpr size_t kMonthDigits = 2;
    const size_t slash = time.rfind('/');
    if (slash != std::string_view::npos && slash >= kMonthDigits) {
      time.remove_prefix(slash - kMonthDigits);
    }
    line->time = Trimmed(time);
    return true;
  }
}

// Returns the bytes of a dump row, without its offset and text.
std::string_view DumpBytes(std::string_view text) {
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
    line.is_dump = text.find('|') != std::string_view::npos;
    line.problem = Trimmed(text) == "*" ? "the dump omits rows ('*'); use hexdump -v to print all"
                                        : ReadHexBytes(DumpBytes(text), &line.bytes);
    return line;
  }
  line.problem = ReadHexBytes(rest, &line.bytes);
  // A failed read has a negative length and no bytes.
  if (line.problem.empty() && std::max(length, 0) != static_cast<int>(line.bytes.size())) {
    line.problem = "the trace line announces " + std::to_string(length) + " bytes and has " +
                   std::to_string(line.bytes.size());
  }
  return line;
}

bool IsDumpEnd(std::string_view text, size_t count) {
  const std::string_view offset = Trimmed(text);
  return offset.size() == kOffsetDigits &&
         ParseHexNumber(offset, INT_MAX) == static_cast<int>(count);
}

}  // namespace tools
