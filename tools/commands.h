// The commands of the tool. Each function adds a command with its options and help to the command
// line. The command runs after the line has been parsed, and throws Failure on failure.
#pragma once

namespace CLI {
class App;
}

namespace tools {

// Fits a lens's tracking table to recorded focus searches; prints or plots the built-in tables.
void AddLensCommand(CLI::App* app);

// Records focus searches; a subcommand of `lens`.
void AddLensRecordCommand(CLI::App* lens);

// Explains bytes from the command line or standard input.
void AddFramesCommand(CLI::App* app);

// Prints the serial data datagrams.
void AddMonitorCommand(CLI::App* app);

// Sends camera-control commands: a verb of ptz_verbs.h, or any code.
void AddPtzCommand(CLI::App* app);

// Writes bytes to the serial line.
void AddWriteCommand(CLI::App* app);

// Prints the camera information file.
void AddInfoCommand(CLI::App* app);

// Shows, creates and changes the parameter block file.
void AddParamsCommand(CLI::App* app);

// Updates the firmware of the microcontroller of an HD camera module.
void AddFirmwareUpdateCommand(CLI::App* app);

// Prints the state of the daemon, or why it does not run.
void AddStatusCommand(CLI::App* app);

// Sends a stop datagram to the daemon's UDP port.
void AddStopCommand(CLI::App* app);

}  // namespace tools
