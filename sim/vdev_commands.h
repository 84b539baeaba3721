// The commands that drive the virtual device, typed or scripted: the verbs of `rs232ctl ptz`, and
// a few words of vdev's own.
#pragma once

#include <string>
#include <vector>

#include "sim/virtual_device.h"
#include "tools/ptz_verbs.h"

namespace sim {

// Carries out one line. An empty line does nothing; bad input makes the device note one line that
// says what is wrong. Returns false when the line says quit.
bool RunCommand(const std::string& line, VirtualDevice* device);

// The verb that a line gives, or is short for; null for a word of vdev's own.
const tools::PtzVerb* VerbOf(const std::string& line);

// A line of a help text: what to press or type, and what it does.
struct HelpLine {
  std::string keys;
  std::string does;
};

// The commands, a line each with what it does.
std::vector<HelpLine> CommandHelp();

// One line of a script and how long to watch afterwards.
struct ScriptStep {
  std::string line;
  milliseconds watch;
};

// The demonstration of a model. With `updates` that of an HD module ends in new firmware, and so in
// a reboot of the device.
std::vector<ScriptStep> DemoScript(const std::string& model, bool updates);

// Whether the device has shown everything that its demonstration should; notes what is missing.
bool DemoShowedAll(VirtualDevice* device, bool updates);

}  // namespace sim
