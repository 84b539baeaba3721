// The table: one section a kind of figure, one column a contender, then the ratios.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "bench/report.h"

namespace bench {
namespace {

using Row = std::vector<std::string>;

constexpr char kNothing[] = "-";
constexpr char kNotAvailable[] = "n/a";

// A section's rows under its head, and the reasons of its empty cells.
struct Table {
  std::string title;
  Row head;
  std::vector<Row> rows;
};

// Reasons are numbered over the whole report, each once.
class Footnotes {
 public:
  std::string Mark(const std::string& reason) {
    auto found = std::find(notes_.begin(), notes_.end(), reason);
    if (found == notes_.end()) found = notes_.insert(found, reason);
    return std::string(kNotAvailable) + " [" + std::to_string(found - notes_.begin() + 1) + "]";
  }
  const std::vector<std::string>& Notes() const { return notes_; }

 private:
  std::vector<std::string> notes_;
};

std::vector<std::string> Sections(const Results& results) {
  std::vector<std::string> sections;
  for (const Figure& figure : results.Figures()) {
    if (std::find(sections.begin(), sections.end(), figure.section) == sections.end()) {
      sections.push_back(figure.section);
    }
  }
  return sections;
}

std::string CellText(const Results& results, const Figure& figure, const Entrant& entrant,
                     Footnotes* notes) {
  const auto value = results.Value(figure.id, entrant.id);
  if (value.has_value()) return Number(*value);
  const Cell* cell = results.Find(figure.id, entrant.id);
  return cell == nullptr ? kNothing : notes->Mark(cell->reason);
}

std::string RatioText(const Results& results, const Figure& figure, const Entrant* entrant) {
  const auto ratio = results.Ratio(figure, entrant);
  return ratio.has_value() ? Number(*ratio) : kNothing;
}

std::string UnitText(const Figure& figure) {
  return figure.unit + (figure.better == Better::kMore ? " (more is better)" : "");
}

Table TableOf(const Results& results, const std::string& section, Footnotes* notes) {
  const bool compares = results.IsComparison(section);
  Table table = {.title = section, .head = {"", "unit"}, .rows = {}};
  for (const Entrant& entrant : results.entrants) {
    if (compares || entrant.role == Role::kSubject) table.head.push_back(entrant.id);
  }
  if (compares) table.head.insert(table.head.end(), {"/ best peer", "/ minimal"});
  for (const Figure& figure : results.Figures()) {
    if (figure.section != section) continue;
    Row row = {figure.label, UnitText(figure)};
    for (const Entrant& entrant : results.entrants) {
      if (!compares && entrant.role != Role::kSubject) continue;
      row.push_back(CellText(results, figure, entrant, notes));
    }
    if (compares) {
      row.push_back(RatioText(results, figure, results.BestPeer(figure)));
      row.push_back(RatioText(results, figure, results.First(Role::kLimit)));
    }
    table.rows.push_back(row);
  }
  return table;
}

// --- Plain text --------------------------------------------------------------------------------

std::vector<size_t> Widths(const std::vector<Table>& tables) {
  std::vector<size_t> widths;
  const auto take = [&widths](const Row& row) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], row[i].size());
  };
  for (const Table& table : tables) {
    take(table.head);
    std::for_each(table.rows.begin(), table.rows.end(), take);
  }
  return widths;
}

// The label and the unit to the left, everything else to the right.
std::string Aligned(const Row& row, const std::vector<size_t>& widths) {
  constexpr size_t kLeft = 2;
  std::string line;
  for (size_t i = 0; i < row.size(); ++i) {
    const std::string padding(widths[i] - row[i].size(), ' ');
    line += i < kLeft ? row[i] + padding : padding + row[i];
    line += "  ";
  }
  return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

// --- Markdown ----------------------------------------------------------------------------------

std::string Piped(const Row& row) {
  std::string line = "|";
  for (const std::string& cell : row)
    line.append(" ").append(cell).append(" |");
  return line + "\n";
}

std::string MarkdownTable(const Table& table) {
  std::string text = "**" + table.title + "**\n\n" + Piped(table.head);
  Row rule(table.head.size(), "---:");
  rule[0] = rule[1] = "---";
  text += Piped(rule);
  for (const Row& row : table.rows)
    text += Piped(row);
  return text + "\n";
}

std::string NoteLine(size_t index, const Footnotes& notes) {
  std::string line = "[";
  return line.append(std::to_string(index + 1))
      .append("] ")
      .append(notes.Notes()[index])
      .append("\n");
}

std::string EntrantLine(const Entrant& entrant) {
  return entrant.id + " (" + entrant.version + "): " + entrant.what;
}

}  // namespace

std::string Number(double value) {
  constexpr int kDigits = 3;
  const double size = std::fabs(value);
  const int before_point = size < 1 ? 1 : static_cast<int>(std::floor(std::log10(size))) + 1;
  // Small values keep what tells them apart; an exact nought stays one.
  int decimals = std::max(kDigits - before_point, 0);
  if (size > 0 && size < 0.1) decimals = kDigits;
  if (std::floor(size) == size) decimals = 0;
  std::array<char, 64> text;
  snprintf(text.data(), text.size(), "%.*f", decimals, value);
  return text.data();
}

std::string TextReport(const Results& results) {
  Footnotes notes;
  std::vector<Table> tables;
  for (const std::string& section : Sections(results))
    tables.push_back(TableOf(results, section, &notes));
  const std::vector<size_t> widths = Widths(tables);
  std::string text;
  for (const auto& [name, value] : results.machine)
    text += name + ": " + value + "\n";
  for (const Entrant& entrant : results.entrants)
    text += EntrantLine(entrant) + "\n";
  for (const Table& table : tables) {
    text.append("\n").append(table.title).append("\n").append(Aligned(table.head, widths));
    for (const Row& row : table.rows)
      text += Aligned(row, widths);
  }
  text += "\n";
  for (size_t i = 0; i < notes.Notes().size(); ++i)
    text += NoteLine(i, notes);
  for (const std::string& line : results.method)
    text.append("- ").append(line).append("\n");
  return text;
}

std::string MarkdownReport(const Results& results) {
  Footnotes notes;
  std::string text;
  for (const auto& [name, value] : results.machine)
    text.append(text.empty() ? "" : "; ").append(name).append(": ").append(value);
  text += ".\n\n";
  for (const Entrant& entrant : results.entrants)
    text.append("- ").append(EntrantLine(entrant)).append("\n");
  text += "\n";
  for (const std::string& section : Sections(results))
    text += MarkdownTable(TableOf(results, section, &notes));
  for (size_t i = 0; i < notes.Notes().size(); ++i)
    text.append("- ").append(NoteLine(i, notes));
  text += "\nHow it is measured:\n\n";
  for (const std::string& line : results.method)
    text.append("- ").append(line).append("\n");
  return text;
}

std::string WithReport(const std::string& document, const std::string& report) {
  const size_t begin = document.find(kReportBegin);
  const size_t end = document.find(kReportEnd);
  if (begin == std::string::npos || end == std::string::npos || end < begin) {
    throw std::runtime_error(std::string("no lines \"") + kReportBegin + "\" and \"" + kReportEnd +
                             "\" in the document");
  }
  const std::string head = document.substr(0, begin) + kReportBegin;
  return head + "\n\n" + report + "\n" + document.substr(end);
}

}  // namespace bench
