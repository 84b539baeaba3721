#include <unistd.h>

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
#include "tools/json.h"
#include "tools/output.h"

namespace tools {

namespace {

// Written by the daemon, KEY=VALUE a line.
constexpr char kInfoPath[] = "/var/nvt/camera.info";

struct Fact {
  std::string key;  // in lower case
  std::string value;
};

std::vector<Fact> ParseFacts(const std::vector<uint8_t>& text) {
  std::vector<Fact> facts;
  for (auto begin = text.begin(); begin != text.end();) {
    const auto end = std::find(begin, text.end(), '\n');
    const auto equals = std::find(begin, end, '=');
    if (equals != end) {
      Fact fact = {.key = {begin, equals}, .value = {equals + 1, end}};
      std::transform(fact.key.begin(), fact.key.end(), fact.key.begin(),
                     [](unsigned char c) { return static_cast<char>(tolower(c)); });
      facts.push_back(std::move(fact));
    }
    begin = end == text.end() ? end : end + 1;
  }
  return facts;
}

void RunInfo(bool is_json) {
  if (access(kInfoPath, F_OK) != 0) {
    throw Failure(EXIT_STATUS_FAILED, std::string("there is no ") + kInfoPath +
                                          ": no module or lens has told about itself");
  }
  const std::vector<Fact> facts = ParseFacts(ReadFile(kInfoPath));
  if (facts.empty()) throw Failure(EXIT_STATUS_FAILED, std::string(kInfoPath) + " says nothing");
  const Json object = OwnJson(json_object_new_object());
  for (const Fact& fact : facts) {
    json_object_object_add(object.get(), fact.key.c_str(), NewJsonText(fact.value));
    if (!is_json) Print(stdout, "%-11s %s\n", fact.key.c_str(), fact.value.c_str());
  }
  if (is_json) PrintJson(object);
}

}  // namespace

void AddInfoCommand(CLI::App* app) {
  CLI::App* info = app->add_subcommand("info", "Print what the camera module told about itself");
  const auto is_json = std::make_shared<bool>();
  info->add_flag("--json", *is_json, "print a JSON object");
  info->footer(
      "SD and HD modules tell version, model and resolution; a motorized lens its version.\n"
      "Example: rs232ctl info --json");
  info->final_callback([is_json] { RunInfo(*is_json); });
}

}  // namespace tools
