// The commands of the tool. Each adds itself, with its options and help, to the command line;
// what it does runs when the line has been read, and fails by throwing Failure.
#pragma once

namespace CLI {
class App;
}

namespace tools {

// Sends a stop datagram to the daemon's UDP port.
void AddStopCommand(CLI::App* app);

}  // namespace tools
