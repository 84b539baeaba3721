// The camera information file. Other processes of the device read from it which camera is connected
// to the serial line.
//
// The modes choose the lines. Keeps no state between calls; any thread may call.
#pragma once

#include <initializer_list>

constexpr char CAMERA_INFO_PATH[] = "/var/nvt/camera.info";

// Rewrites the file. Each line is written by its own shell command and is quoted, so the shell
// expands nothing in it. No line may contain a single quote. If the path exists and is not a
// regular file, nothing is written and one line goes to standard error: a pipe without a reader
// would block the shell forever. Blocks until the commands have run; ignores their results.
void CUTIL_WriteCameraInfo(std::initializer_list<const char*> lines);
