// What stands in for the parts of the daemon that reach beyond it: shell commands, the reboot, the
// worker thread. Linked in their place (CMakeLists.txt: --wrap).
#pragma once

#include <csetjmp>
#include <string>
#include <vector>

namespace fuzz {

// The shell commands since they were last cleared, as the shell would get them; none is run. One
// with anything but harmless words in it is a finding.
std::vector<std::string>& Commands();

// Where CUTIL_Reboot goes, which does not return; a reboot while it is null is a finding.
extern std::jmp_buf* g_after_reboot;

// Lets the worker thread that was started last, if it still runs, make one step. It has no thread
// here.
void StepWorker();

}  // namespace fuzz
