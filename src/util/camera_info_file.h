// The camera information file: tells the other processes of the device what is behind the line.
//
// What its lines say is up to the modes. Nothing is kept between calls; any thread may call.
#pragma once

#include <initializer_list>

constexpr char CAMERA_INFO_PATH[] = "/var/nvt/camera.info";

// Writes the file anew: each line by a shell command of its own, quoted, so that nothing in it is
// expanded. No line may hold a single quote. Where something else than a regular file has that name
// (a pipe that nobody reads would hold the shell for ever) it is left alone, with one line on
// standard error. Blocks for the commands, whose results are ignored.
void CUTIL_WriteCameraInfo(std::initializer_list<const char*> lines);
