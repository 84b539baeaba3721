// The commands of the tool. Each adds itself, with its options and help, to the command line;
// what it does runs when the line has been read, and fails by throwing Failure.
#pragma once

namespace CLI {
class App;
}

namespace tools {

// Fits a lens's tracking table to recorded focus searches; shows the built-in tables.
void AddLensCommand(CLI::App* app);

// Records focus searches: a command of `lens`.
void AddLensRecordCommand(CLI::App* lens);

// Explains bytes that are pasted or piped.
void AddFramesCommand(CLI::App* app);

// Shows the serial data datagrams.
void AddMonitorCommand(CLI::App* app);

// Camera control: one verb of ptz_verbs.h, or any code.
void AddPtzCommand(CLI::App* app);

// Bytes for the serial line.
void AddWriteCommand(CLI::App* app);

// The camera information file.
void AddInfoCommand(CLI::App* app);

// The parameter block file.
void AddParamsCommand(CLI::App* app);

// New firmware for the microcontroller of an HD camera module.
void AddFirmwareUpdateCommand(CLI::App* app);

// Tells how the daemon is, or why it does not run.
void AddStatusCommand(CLI::App* app);

// Sends a stop datagram to the daemon's UDP port.
void AddStopCommand(CLI::App* app);

}  // namespace tools
