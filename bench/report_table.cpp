// The tables: one per section, one column per contender, then the ratios.
#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>

#include "bench/report.h"
#include "tools/format.h"

namespace bench {
namespace {

using Row = std::vector<std::string>;
using Table = std::vector<Row>;  // header first

constexpr char kNothing[] = "-";
constexpr char kReportBegin[] = "<!-- bench: begin, written by ./bench.sh --docs -->";
constexpr char kReportEnd[] = "<!-- bench: end -->";

// Label and unit are left-aligned, all other columns right-aligned.
constexpr size_t kLeftColumns = 2;

std::string NoteMark(size_t index) {
  return std::string("[").append(std::to_string(index + 1)).append("]");
}

// Numbers the distinct reasons of the whole report.
class Footnotes {
 public:
  std::string Mark(const std::string& reason) {
    auto found = std::find(notes_.begin(), notes_.end(), reason);
    if (found == notes_.end()) found = notes_.insert(found, reason);
    return "n/a " + NoteMark(static_cast<size_t>(found - notes_.begin()));
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

// True for a section with figures of contenders other than the subject.
bool IsComparison(const Results& results, const std::string& section) {
  return std::any_of(results.Figures().begin(), results.Figures().end(), [&](const Figure& figure) {
    return figure.section == section &&
           std::any_of(results.entrants.begin() + 1, results.entrants.end(),
                       [&](const Entrant& entrant) {
                         return results.Find(figure.id, *entrant.kind) != nullptr;
                       });
  });
}

std::string CellText(const Results& results, const Figure& figure, const Contender& entrant,
                     Footnotes* notes) {
  const auto value = results.Value(figure.id, entrant);
  if (value.has_value()) return Number(*value);
  const Cell* cell = results.Find(figure.id, entrant);
  return cell == nullptr ? kNothing : notes->Mark(cell->reason);
}

std::optional<double> BestPeer(const Results& results, const Figure& figure) {
  std::optional<double> best;
  for (const Entrant& entrant : results.entrants) {
    const auto value = results.Value(figure.id, *entrant.kind);
    if (entrant.kind->role != Role::kPeer || !value.has_value()) continue;
    const bool is_better = figure.more_is_better ? *value > best : *value < best;
    if (!best.has_value() || is_better) best = value;
  }
  return best;
}

std::optional<double> Minimal(const Results& results, const Figure& figure) {
  const auto found =
      std::find_if(results.entrants.begin(), results.entrants.end(),
                   [](const Entrant& entrant) { return entrant.kind->role == Role::kLimit; });
  return results.Value(figure.id, *found->kind);
}

// Empty unless both values are above 0.
std::string RatioText(std::optional<double> own, std::optional<double> other) {
  return own > 0.0 && other > 0.0 ? Number(*own / *other) : kNothing;
}

Row RowOf(const Results& results, const Figure& figure, bool compares, Footnotes* notes) {
  Row row = {figure.label, figure.unit + (figure.more_is_better ? " (more is better)" : "")};
  const Contender& subject = *results.entrants.front().kind;
  if (!compares) {
    row.push_back(CellText(results, figure, subject, notes));
    return row;
  }
  for (const Entrant& entrant : results.entrants)
    row.push_back(CellText(results, figure, *entrant.kind, notes));
  const auto own = results.Value(figure.id, subject);
  row.push_back(RatioText(own, BestPeer(results, figure)));
  row.push_back(RatioText(own, Minimal(results, figure)));
  return row;
}

Table TableOf(const Results& results, const std::string& section, Footnotes* notes) {
  const bool compares = IsComparison(results, section);
  Row head = {"", "unit"};
  for (const Entrant& entrant : results.entrants) {
    if (compares || entrant.kind->role == Role::kSubject) head.emplace_back(entrant.kind->id);
  }
  if (compares) head.insert(head.end(), {"/ best peer", "/ minimal"});
  Table table = {head};
  for (const Figure& figure : results.Figures()) {
    if (figure.section == section) table.push_back(RowOf(results, figure, compares, notes));
  }
  return table;
}

// --- Markdown ----------------------------------------------------------------------------------

std::string Line(const Row& row, const std::vector<size_t>& widths) {
  std::string line = "|";
  for (size_t i = 0; i < row.size(); ++i) {
    const std::string padding(widths[i] - row[i].size(), ' ');
    line.append(" ").append(i < kLeftColumns ? row[i] + padding : padding + row[i]).append(" |");
  }
  return line + "\n";
}

std::string ListItem(const std::string& text) {
  return std::string("- ").append(text).append("\n");
}

std::string Markdown(const Table& table) {
  std::vector<size_t> widths(table.front().size());
  for (const Row& row : table) {
    for (size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], row[i].size());
  }
  Row rule;
  for (size_t i = 0; i < widths.size(); ++i)
    rule.push_back(std::string(widths[i] - 1, '-') + (i < kLeftColumns ? '-' : ':'));
  std::string text = Line(table.front(), widths) + Line(rule, widths);
  for (size_t i = 1; i < table.size(); ++i)
    text += Line(table[i], widths);
  return text;
}

}  // namespace

std::string Number(double value) {
  constexpr int kDigits = 3;
  const double size = std::fabs(value);
  const int before_point = size < 1 ? 1 : static_cast<int>(std::floor(std::log10(size))) + 1;
  // Keeps enough decimals to distinguish small values; an exact 0 stays "0".
  int decimals = std::max(kDigits - before_point, 0);
  if (size > 0 && size < 0.1) decimals = kDigits;
  if (std::floor(size) == size) decimals = 0;
  return tools::Format("%.*f", decimals, value);
}

std::string TableReport(const Results& results) {
  Footnotes notes;
  std::string text = results.machine + "\n\n";
  for (const auto& [kind, version] : results.entrants)
    text += ListItem(std::string(kind->id).append(" (").append(version).append("): ") + kind->what);
  for (const std::string& section : Sections(results)) {
    text.append("\n**").append(section).append("**\n\n");
    text += Markdown(TableOf(results, section, &notes));
  }
  text += "\n";
  for (size_t i = 0; i < notes.Notes().size(); ++i)
    text += ListItem(NoteMark(i) + " " + notes.Notes()[i]);
  text += "\nMethod:\n\n";
  for (const std::string& line : results.method)
    text += ListItem(line);
  return text;
}

std::string WithReport(const std::string& document, const std::string& report) {
  const size_t begin = document.find(kReportBegin);
  const size_t end = document.find(kReportEnd);
  if (begin == std::string::npos || end == std::string::npos || end < begin) {
    throw std::runtime_error(std::string("the document lacks the lines \"") + kReportBegin +
                             "\" and \"" + kReportEnd + "\"");
  }
  return document.substr(0, begin) + kReportBegin + "\n\n" + report + "\n" + document.substr(end);
}

}  // namespace bench
