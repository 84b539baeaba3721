#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/lens_fit.h"
#include "tools/lens_plot.h"
#include "tools/lens_report.h"
#include "tools/lens_trace.h"
#include "tools/output.h"
#include "tools/usage.h"

namespace tools {
namespace {

struct FitArguments {
  std::string log;
  std::string out;
  std::string svg;
  std::string name = "FITTED";
  bool json = false;
  FitOptions options;
};

void Fit(const FitArguments& arguments) {
  const std::vector<uint8_t> text = ReadStream(arguments.log);
  const TraceLog log = ReadTrace({reinterpret_cast<const char*>(text.data()), text.size()});
  if (log.points.empty()) {
    throw Failure(EXIT_STATUS_FAILED, "no trace points in " + std::to_string(log.lines) +
                                          " lines (" + std::to_string(log.malformed.size()) +
                                          " malformed)");
  }
  const LensFit fit = FitLens(log.points, arguments.options);
  const std::string table = TableText(arguments.name, fit.Table());
  if (!arguments.out.empty()) WriteText(arguments.out, table);
  if (!arguments.svg.empty()) DrawFit(fit, arguments.svg);
  PrintText(arguments.json ? FitJson(log, fit) : FitReport(log, fit));
  if (!arguments.json && arguments.out.empty()) PrintText("\n" + table);
  const std::string warnings = FitWarnings(log, fit);
  for (size_t at = 0, end = 0; (end = warnings.find('\n', at)) != std::string::npos; at = end + 1)
    Print(stderr, "rs232ctl: warning: %s\n", warnings.substr(at, end - at).c_str());
}

// The table is pasted into a source file.
std::string CheckName(const std::string& text) {
  const bool is_name = !text.empty() && std::ranges::all_of(text, [](unsigned char c) {
    return isalnum(c) != 0 || c == '_';
  });
  return is_name ? "" : "'" + text + "' is not a name of letters, digits and underscores";
}

void AddFitCommand(CLI::App* lens) {
  auto arguments = std::make_shared<FitArguments>();
  CLI::App* fit = lens->add_subcommand("fit", "Fit a tracking table to recorded trace points");
  constexpr int kSpacingMin = 10;
  constexpr int kSpacingMax = 500;
  fit->add_option("TRACE.log", arguments->log, "log of the daemon's output; - reads standard input")
      ->type_name("")
      ->required();
  fit->add_option("--out", arguments->out, "write the table to this file instead of printing it")
      ->type_name("FILE");
  fit->add_option("--name", arguments->name, "name of the table: ZFTABLE_NAME")
      ->type_name("NAME")
      ->check(CLI::Validator(CheckName, ""))
      ->capture_default_str();
  fit->add_option("--svg", arguments->svg, "plot the fit to this file")->type_name("FILE");
  fit->add_flag("--json", arguments->json, "print the report as JSON");
  fit->add_option("--entries", arguments->options.entries,
                  "entries of the table, default: as many as the shortest built-in table that "
                  "covers all points; 2 to " +
                      std::to_string(kFitEntriesMax))
      ->type_name("N")
      ->transform(NumberFrom(2, kFitEntriesMax));
  fit->add_option("--spacing", arguments->options.spacing,
                  "zoom steps between two entries, " + std::to_string(kSpacingMin) + " to " +
                      std::to_string(kSpacingMax))
      ->type_name("STEPS")
      ->transform(NumberFrom(kSpacingMin, kSpacingMax))
      ->capture_default_str();
  fit->add_option("--max-gap", arguments->options.max_gap,
                  "largest number of adjacent entries without a point")
      ->type_name("N")
      ->transform(NumberFrom(0, kFitEntriesMax))
      ->capture_default_str();
  fit->footer("Example: rs232ctl lens fit trace.log --out table.h --svg fit.svg");
  fit->final_callback([arguments] { Fit(*arguments); });
}

void AddPlotCommand(CLI::App* lens) {
  auto svg = std::make_shared<std::string>();
  CLI::App* plot = lens->add_subcommand("plot", "Show the built-in tracking tables");
  plot->add_option("--svg", *svg, "plot to this file instead of printing numbers")
      ->type_name("FILE");
  plot->footer("Example: rs232ctl lens plot --svg curves.svg");
  plot->final_callback([svg] {
    if (svg->empty()) {
      PrintText(KnownCurvesText());
    } else {
      DrawKnownCurves(*svg);
    }
  });
}

}  // namespace

void AddLensCommand(CLI::App* app) {
  CLI::App* lens = app->add_subcommand("lens", "Calibrate a motorized lens");
  lens->require_subcommand(1);
  lens->footer(
      "Examples:\n"
      "  rs232ctl lens record trace.log\n"
      "  rs232ctl lens fit trace.log --out table.h --svg fit.svg\n"
      "  rs232ctl lens plot --svg curves.svg");
  AddLensRecordCommand(lens);
  AddFitCommand(lens);
  AddPlotCommand(lens);
}

}  // namespace tools
