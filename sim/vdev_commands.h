// The commands that drive the virtual device, typed or scripted: the verbs of `rs232ctl ptz` and a
// few additional words.
#pragma once

#include <string>
#include <vector>

#include "sim/virtual_device.h"
#include "tools/ptz_verbs.h"

namespace sim {

// Executes one line. An empty line does nothing; invalid input prints one error line on the device.
// Returns false for quit.
bool RunCommand(const std::string& line, VirtualDevice* device);

// The verb that a line invokes, by its name or a short form; null for a word without a verb.
const tools::PtzVerb* VerbOf(const std::string& line);

// A line of a help text: the keys or words, and their effect.
struct HelpLine {
  std::string keys;
  std::string does;
};

// The commands, one per line.
std::vector<HelpLine> CommandHelp();

// A line of a script, and how long to watch after it.
struct ScriptStep {
  std::string line;
  milliseconds watch;
};

// The demonstration of a model. With `updates`, that of an HD module ends with a firmware update
// and thus a reboot of the device.
std::vector<ScriptStep> DemoScript(const std::string& model, bool updates);

// True if the device has shown everything that its demonstration should; otherwise reports what is
// missing.
bool DemoShowedAll(VirtualDevice* device, bool updates);

}  // namespace sim
