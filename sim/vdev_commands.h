// The words by which the virtual device is driven, typed or scripted.
#pragma once

#include <chrono>
#include <span>
#include <string>
#include <vector>

#include "sim/live_keys.h"
#include "sim/virtual_device.h"

namespace sim {

enum class CommandResult { kDone, kQuit, kBad };

// Sends what a key or a word asks for.
void SendAction(const KeyAction& action, VirtualDevice* device);

// Carries one line out: a word of the table and its arguments. An empty line does nothing. Bad
// input makes the device note one line that says what is wrong.
CommandResult RunCommand(const std::string& line, VirtualDevice* device);

// The words, a line each with what it does.
std::vector<std::string> CommandHelp();

// One line of a script and how long to watch afterwards.
struct ScriptStep {
  const char* line;
  std::chrono::milliseconds watch;
};

// The demonstration of a model.
std::span<const ScriptStep> DemoScript(const std::string& model);

// Whether a device of a model has shown everything that its demonstration should; notes what it
// has not.
bool DemoShowedAll(const std::string& model, const Sightings& seen, EventSink* sink);

}  // namespace sim
