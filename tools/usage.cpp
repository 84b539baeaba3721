#include "tools/usage.h"

#include <algorithm>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/format.h"
#include "tools/nearest_name.h"
#include "tools/parse.h"

namespace tools {

namespace {

using Names = std::vector<std::string>;

// Returns the innermost command that was recognised.
const CLI::App* Innermost(const CLI::App* app) {
  while (app->remaining().empty() && !app->get_subcommands().empty())
    app = app->get_subcommands().front();
  return app;
}

Names CommandNames(const CLI::App& app) {
  Names names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(command->get_name());
  return names;
}

Names OptionNames(const CLI::App& app) {
  Names names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames())
      names.push_back("--" + name);
  }
  return names;
}

// Returns "" for the tool itself, else for example "ptz preset: ".
std::string Place(const CLI::App& app) {
  if (app.get_parent() == nullptr) return "";
  std::string path = app.get_name() + ": ";
  for (const CLI::App* up = app.get_parent(); up->get_parent() != nullptr; up = up->get_parent())
    path.insert(0, up->get_name() + ' ');
  return path;
}

// Turns the parser's "--for: 1 required TIME missing" into "--for: TIME is missing".
std::string Reworded(std::string text) {
  constexpr std::string_view kBefore = ": 1 required ";
  constexpr std::string_view kAfter = " missing";
  const size_t at = text.find(kBefore);
  if (at == std::string::npos || !text.ends_with(kAfter)) return text;
  text.replace(text.size() - kAfter.size(), kAfter.size(), " is missing");
  return text.replace(at, kBefore.size(), ": ");
}

// Wraps lines at 80 columns. The rest of a row of options or commands is aligned with its
// description, that of any other line with the start of the line.
class WrappingFormatter : public CLI::Formatter {
 public:
  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override {
    std::istringstream lines(CLI::Formatter::make_help(app, std::move(name), mode));
    std::string text;
    for (std::string line; std::getline(lines, line);) {
      const size_t gap = line.find("  ", std::min(line.find_first_not_of(' '), line.size()));
      const bool is_row = line.starts_with("  ") && gap != std::string::npos;
      text += WrappedLine(line, is_row ? line.find_first_not_of(' ', gap) : 0) + "\n";
    }
    return text;
  }

 private:
  static std::string WrappedLine(std::string line, size_t indent) {
    constexpr size_t kColumns = 80;
    std::string text;
    while (line.size() > kColumns) {
      const size_t blank = line.rfind(' ', kColumns);
      if (blank == std::string::npos || blank <= indent) break;
      text += line.substr(0, blank) + "\n";
      line = std::string(indent, ' ') + line.substr(blank + 1);
    }
    return text + line;
  }
};

}  // namespace

void WrapHelp(CLI::App* app) {
  app->formatter(std::make_shared<WrappingFormatter>());
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string DescribeParseError(const CLI::App& app, const std::exception& error) {
  const CLI::App& inner = *Innermost(&app);
  const Names commands = CommandNames(inner);
  const Names left = inner.remaining();
  // An unknown option leaves its value as an extra argument, before or after it.
  const auto option = std::ranges::find_if(
      left, [](const std::string& word) { return word.starts_with('-') && word != "-"; });
  if (option != left.end()) {
    const std::string name = option->substr(0, option->find('='));
    return Place(inner) + "unknown option " + name + DidYouMean(name, OptionNames(inner));
  }
  if (!left.empty() && commands.empty())
    return Place(inner) + "unexpected argument '" + left.front() + "'";
  if (!left.empty()) {
    const std::string advice = DidYouMean(left.front(), commands);
    return Place(inner) + "unknown command '" + left.front() + '\'' +
           (advice.empty() ? "; --help lists them" : advice);
  }
  if (!commands.empty() && inner.get_require_subcommand_min() > 0) {
    return Place(inner) + "missing command: " + Joined(commands);
  }
  return Place(inner) + Reworded(error.what());
}

CLI::Validator NumberFrom(int low, int high) {
  const auto take = [low, high](std::string& text) -> std::string {
    const auto number = ParseNumber(text, low, high);
    if (!number.has_value())
      return Format("%s is not a number from %d to %d", text.c_str(), low, high);
    text = std::to_string(*number);
    return "";
  };
  return {take, ""};
}

CLI::Validator OneOf(const std::vector<std::string>& names) {
  const auto check = [names](const std::string& text) -> std::string {
    if (std::ranges::find(names, text) != names.end()) return "";
    return text + " is not one of " + Joined(names);
  };
  return {check, ""};
}

}  // namespace tools
