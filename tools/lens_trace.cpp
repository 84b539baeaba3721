#include "tools/lens_trace.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <string>

namespace tools {
namespace {

constexpr std::string_view kWord = "TRACE";

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

// Returns the text after the word TRACE in a line, or nothing if the line does not contain this
// word.
std::string_view AfterWord(std::string_view line) {
  const size_t at = line.rfind(kWord);
  if (at == std::string_view::npos) return {};
  const std::string_view rest = line.substr(at + kWord.size());
  const bool begins = at == 0 || isalpha(static_cast<unsigned char>(line[at - 1])) == 0;
  return begins && !rest.empty() && IsBlank(rest.front()) ? rest : std::string_view();
}

bool TakePoint(const std::string& text, TracePoint* point) {
  const auto fits = [](int number) { return number >= INT16_MIN && number <= INT16_MAX; };
  int end = 0;
  const int count = sscanf(text.c_str(), "%7d%*[ \t]%7d%*[ \t]diff=%7d %n", &point->zoom,
                           &point->focus, &point->diff, &end);
  return count == 3 && static_cast<size_t>(end) == text.size() && fits(point->zoom) &&
         fits(point->focus) && fits(point->diff);
}

}  // namespace

TraceLog ReadTrace(std::string_view text) {
  TraceLog log;
  while (!text.empty()) {
    ++log.lines;
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    const std::string_view rest = AfterWord(line);
    if (rest.empty()) continue;
    TracePoint point = {.line = log.lines, .zoom = 0, .focus = 0, .diff = 0};
    if (TakePoint(std::string(rest), &point)) {
      log.points.push_back(point);
    } else {
      log.malformed.push_back(log.lines);
    }
  }
  return log;
}

}  // namespace tools
