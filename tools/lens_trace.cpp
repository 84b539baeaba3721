#include "tools/lens_trace.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>

namespace tools {
namespace {

constexpr std::string_view kWord = "TRACE";

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

void SkipBlanks(std::string_view* text) {
  while (!text->empty() && IsBlank(text->front()))
    text->remove_prefix(1);
}

bool TakeNumber(std::string_view* text, int* number) {
  SkipBlanks(text);
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), *number);
  if (error != std::errc() || *number < INT16_MIN || *number > INT16_MAX) return false;
  text->remove_prefix(static_cast<size_t>(end - text->data()));
  return true;
}

bool TakeBlanks(std::string_view* text) {
  const size_t before = text->size();
  SkipBlanks(text);
  return text->size() < before;
}

bool TakeWord(std::string_view* text, std::string_view word) {
  if (text->substr(0, word.size()) != word) return false;
  text->remove_prefix(word.size());
  return true;
}

// What follows the word TRACE in a line; nothing where the word is not there, or part of another.
std::string_view AfterWord(std::string_view line) {
  const size_t at = line.rfind(kWord);
  if (at == std::string_view::npos) return {};
  const std::string_view rest = line.substr(at + kWord.size());
  const bool begins = at == 0 || isalpha(static_cast<unsigned char>(line[at - 1])) == 0;
  return begins && !rest.empty() && IsBlank(rest.front()) ? rest : std::string_view();
}

bool TakePoint(std::string_view text, TracePoint* point) {
  if (!TakeNumber(&text, &point->zoom) || !TakeBlanks(&text)) return false;
  if (!TakeNumber(&text, &point->focus) || !TakeBlanks(&text)) return false;
  if (!TakeWord(&text, "diff=") || !TakeNumber(&text, &point->diff)) return false;
  SkipBlanks(&text);
  return text.empty();
}

}  // namespace

TraceLog ReadTrace(std::string_view text) {
  TraceLog log;
  while (!text.empty()) {
    ++log.lines;
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    const std::string_view rest = AfterWord(line);
    if (rest.empty()) continue;
    TracePoint point = {.line = log.lines, .zoom = 0, .focus = 0, .diff = 0};
    if (TakePoint(rest, &point)) {
      log.points.push_back(point);
    } else {
      log.malformed.push_back(log.lines);
    }
  }
  return log;
}

}  // namespace tools
