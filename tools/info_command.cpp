#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
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
  std::istringstream lines(std::string(text.begin(), text.end()));
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    Fact fact = {.key = line.substr(0, equals), .value = line.substr(equals + 1)};
    for (char& c : fact.key)
      c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    facts.push_back(std::move(fact));
  }
  return facts;
}

void RunInfo(bool is_json) {
  if (access(kInfoPath, F_OK) != 0) {
    throw Failure(EXIT_STATUS_FAILED,
                  std::string(kInfoPath) + " does not exist: no module or lens has reported yet");
  }
  const std::vector<Fact> facts = ParseFacts(ReadFile(kInfoPath));
  if (facts.empty()) throw Failure(EXIT_STATUS_FAILED, std::string(kInfoPath) + " is empty");
  const Json object = OwnJson(json_object_new_object());
  for (const Fact& fact : facts) {
    json_object_object_add(object.get(), fact.key.c_str(), NewJsonText(fact.value));
    if (!is_json) Print(stdout, "%-11s %s\n", fact.key.c_str(), fact.value.c_str());
  }
  if (is_json) PrintJson(object);
}

}  // namespace

void AddInfoCommand(CLI::App* app) {
  CLI::App* info = app->add_subcommand("info", "Print the camera module's information file");
  const auto is_json = std::make_shared<bool>();
  info->add_flag("--json", *is_json, "print a JSON object");
  info->footer(
      "SD and HD modules report version, model and resolution; a motorized lens its version.\n"
      "Example: rs232ctl info --json");
  info->final_callback([is_json] { RunInfo(*is_json); });
}

}  // namespace tools
