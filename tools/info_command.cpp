#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>
#include <sstream>
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

void RunInfo(bool is_json) {
  if (access(kInfoPath, F_OK) != 0) {
    throw Failure(std::string(kInfoPath) + " does not exist: no module or lens has reported yet");
  }
  const std::vector<uint8_t> bytes = ReadFile(kInfoPath);
  const Json object = OwnJson(json_object_new_object());
  std::istringstream lines(std::string(bytes.begin(), bytes.end()));
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    std::string key = line.substr(0, equals);
    std::ranges::transform(key, key.begin(), [](unsigned char c) { return tolower(c); });
    const std::string value = line.substr(equals + 1);
    json_object_object_add(object.get(), key.c_str(), NewJsonText(value));
    if (!is_json) Print(stdout, "%-11s %s\n", key.c_str(), value.c_str());
  }
  if (json_object_object_length(object.get()) == 0)
    throw Failure(std::string(kInfoPath) + " is empty");
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
