// A line of the shell, for tests that are in no world themselves.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

struct ShellResult {
  int status;  // of the exit; 128 + N for signal N
  std::string text;
};

// Runs a line in which $VDEV and $CTL are the programs. Its standard error counts as output.
inline ShellResult Shell(const std::string& line) {
#ifdef VDEV_PATH
  setenv("VDEV", VDEV_PATH, 1);
#endif
  setenv("CTL", RS232CTL_PATH, 1);
  FILE* pipe = popen(("exec 2>&1; " + line).c_str(), "re");
  ShellResult result = {.status = -1, .text = ""};
  char part[256];
  while (fgets(part, sizeof(part), pipe) != nullptr)
    result.text += part;
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}
