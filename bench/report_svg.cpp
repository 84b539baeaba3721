// Small multiples: one panel per figure, one bar per contender. A panel may show a second figure as
// a paler bar behind the first.
#include <algorithm>
#include <array>

#include "bench/report.h"
#include "bench/statistics.h"
#include "bench/svg.h"

namespace bench {
namespace {

struct Panel {
  const char* title;
  const char* figure;
  const char* paler;  // null: none
  const char* legend;
};

constexpr std::array<Panel, 12> kPanels = {{
    {"Latency, client to line, 1 client", "latency.to_line.1.p50", "latency.to_line.1.p99",
     "p50, p99 paler; us"},
    {"Latency, client to line, 10 clients", "latency.to_line.10.p50", "latency.to_line.10.p99",
     "p50, p99 paler; us"},
    {"Latency, line to client, 1 client", "latency.to_client.1.p50", "latency.to_client.1.p99",
     "p50, p99 paler; us"},
    {"Latency, line to all of 10 clients", "latency.to_all.10.p50", "latency.to_all.10.p99",
     "p50, p99 paler; us"},
    {"Processor, line at 11 520 bytes/s, 1 client", "line.1.cpu", nullptr, "% of one"},
    {"Processor, line at 11 520 bytes/s, 10 clients", "line.10.cpu", nullptr, "% of one"},
    {"Processor, bulk, client to line", "bulk.to_line.256b.cpu", nullptr,
     "ms/MB, 256 bytes a send"},
    {"Processor, bulk, line to each of 10 clients", "bulk.to_client.10.cpu", nullptr, "ms/MB"},
    {"Wake-ups, idle with 10 clients", "idle.10.wakeups", nullptr, "1/s"},
    {"Memory after the bulk run", "memory.bulk.anonymous", "memory.bulk.rss",
     "anonymous, resident paler; KiB"},
    {"Program, stripped", "size", nullptr, "KiB, without shared libraries"},
    {"Start-up to a listening port", "start", nullptr, "ms"},
}};

constexpr int kColumns = 2;
constexpr double kPanelWidth = 470;
constexpr double kNameWidth = 82;
constexpr double kValueWidth = 96;
constexpr double kBarWidth = kPanelWidth - kNameWidth - kValueWidth - 20;
constexpr double kBarHeight = 13;
constexpr double kRowHeight = 18;
constexpr double kHeadHeight = 42;
constexpr double kMargin = 16;
constexpr double kGap = 14;

// Bars longer than this many times the median are cut off, so that the others remain readable.
constexpr double kCut = 4;

struct Shade {
  const char* bar;
  const char* paler;
};
constexpr std::array<Shade, 3> kShades = {
    {{"#c2410c", "#fdba74"}, {"#475569", "#cbd5e1"}, {"#94a3b8", "#e2e8f0"}}};  // by role

// Attributes of texts.
constexpr char kBold[] = "font-weight=\"bold\"";
constexpr char kPale[] = "fill=\"#64748b\"";

// The value at the end of a panel's axis.
double AxisEnd(const Results& results, const Panel& panel) {
  std::vector<double> values;
  double longest = 0;
  for (const Entrant& entrant : results.entrants) {
    const auto value = results.Value(panel.figure, *entrant.kind);
    if (!value.has_value()) continue;
    values.push_back(*value);
    const auto paler = panel.paler == nullptr ? value : results.Value(panel.paler, *entrant.kind);
    longest = std::max({longest, *value, paler.value_or(0)});
  }
  if (values.empty() || longest == 0) return 1;
  const double middle = Median(values);
  return middle > 0 ? std::min(longest, kCut * middle) : longest;
}

void AppendBar(double x, double y, double value, double axis_end, const char* color, Svg* svg) {
  const double length = kBarWidth * std::min(value / axis_end, 1.0);
  svg->Add("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" rx=\"1.5\" fill=\"%s\"/>\n",
           x, y, length, kBarHeight, color);
  if (value <= axis_end) return;
  // A gap near the end marks a cut bar.
  svg->Add("<path d=\"M%.1f %.1f l5 -%.1f\" stroke=\"#fff\" stroke-width=\"3\"/>\n",
           x + length - 14, y + kBarHeight + 2, kBarHeight + 4);
}

void AppendRow(const Results& results, const Panel& panel, const Entrant& entrant, double axis_end,
               double x, double y, Svg* svg) {
  const bool is_subject = entrant.kind->role == Role::kSubject;
  const Shade& shade = kShades[static_cast<size_t>(entrant.kind->role)];
  const double base = y + kBarHeight - 2.5;
  const char* weight = is_subject ? kBold : "";
  svg->Text(x + kNameWidth - 6, base, "end", entrant.kind->id, weight);
  const auto value = results.Value(panel.figure, *entrant.kind);
  if (!value.has_value()) {
    svg->Text(x + kNameWidth, base, "start", "n/a", "fill=\"#94a3b8\"");
    return;
  }
  std::string label = Number(*value);
  double longest = *value;
  if (panel.paler != nullptr) {
    const double paler = results.Value(panel.paler, *entrant.kind).value_or(0);
    AppendBar(x + kNameWidth, y, paler, axis_end, shade.paler, svg);
    label.append(", ").append(Number(paler));
    longest = std::max(longest, paler);
  }
  AppendBar(x + kNameWidth, y, *value, axis_end, shade.bar, svg);
  svg->Text(x + kNameWidth + kBarWidth * std::min(longest / axis_end, 1.0) + 6, base, "start",
            label, weight);
}

double PanelHeight(const Results& results) {
  return kHeadHeight + kRowHeight * static_cast<double>(results.entrants.size());
}

void AppendPanel(const Results& results, const Panel& panel, double x, double y, Svg* svg) {
  svg->Text(x, y + 14, "start", panel.title, "font-weight=\"bold\" font-size=\"12.5\"");
  svg->Text(x, y + 29, "start", panel.legend, kPale);
  const double axis_end = AxisEnd(results, panel);
  double row_y = y + kHeadHeight - 6;
  for (const Entrant& entrant : results.entrants) {
    AppendRow(results, panel, entrant, axis_end, x, row_y, svg);
    row_y += kRowHeight;
  }
}

}  // namespace

std::string SvgReport(const Results& results) {
  const int rows = static_cast<int>(kPanels.size() + kColumns - 1) / kColumns;
  const double height = 2 * kMargin + rows * (PanelHeight(results) + kGap);
  const double width = 2 * kMargin + kColumns * kPanelWidth + (kColumns - 1) * kGap;
  Svg svg(width, height, 11.5, "#0f172a");
  svg.Add("<title>rs232d compared with other relays; shorter is better</title>\n");
  for (size_t i = 0; i < kPanels.size(); ++i) {
    const double x = kMargin + static_cast<double>(i % kColumns) * (kPanelWidth + kGap);
    const double y = kMargin + static_cast<double>(i / kColumns) * (PanelHeight(results) + kGap);
    AppendPanel(results, kPanels[i], x, y, &svg);
  }
  svg.Text(kMargin, height - 8, "start",
           "Shorter is better. A gap marks a bar that exceeds the axis.", kPale);
  return svg.Finish();
}

}  // namespace bench
