#include "tools/usage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <vector>

#include "tools/nearest_name.h"

namespace tools {

namespace {

using Names = std::vector<std::string>;

// The command that the words before the wrong one name.
const CLI::App* Innermost(const CLI::App* app) {
  while (!app->get_subcommands().empty())
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

std::string Joined(const Names& names) {
  std::string text;
  for (const std::string& name : names)
    text += (text.empty() ? "" : ", ") + name;
  return text;
}

// "" for the tool itself, else "ptz preset: ".
std::string Place(const CLI::App& app) {
  if (app.get_parent() == nullptr) return "";
  std::string path = app.get_name();
  for (const CLI::App* up = app.get_parent(); up->get_parent() != nullptr; up = up->get_parent())
    path = up->get_name() + ' ' + path;
  return path + ": ";
}

}  // namespace

std::string DescribeParseError(const CLI::App& app, const std::exception& error) {
  const CLI::App& inner = *Innermost(&app);
  const Names commands = CommandNames(inner);
  const Names left = inner.remaining();
  if (!left.empty()) {
    const std::string& word = left.front();
    if (word.starts_with('-')) {
      return Place(inner) + "unknown option " + word + DidYouMean(word, OptionNames(inner));
    }
    if (!commands.empty()) {
      const std::string advice = DidYouMean(word, commands);
      return Place(inner) + "unknown command '" + word + '\'' +
             (advice.empty() ? "; --help lists them" : advice);
    }
    return Place(inner) + "'" + word + "' is too much";
  }
  if (!commands.empty() && inner.get_require_subcommand_min() > 0) {
    return Place(inner) + "a command is missing: " + Joined(commands);
  }
  return Place(inner) + error.what();
}

}  // namespace tools
