// Runs the tool as a child process, for tests with the real daemon.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "sim/daemon_process.h"

// Result of a run of the tool.
struct CtlResult {
  std::optional<int> status;  // nothing if it did not exit
  std::string output;
  std::string errors;
};

// Starts the tool with arguments in shell syntax. Signals go to the tool itself, not to a shell.
std::unique_ptr<sim::DaemonProcess> StartCtl(const std::string& arguments);

// Runs the tool until it exits, without input.
CtlResult RunCtl(const std::string& arguments);

CtlResult AwaitCtl(sim::DaemonProcess* ctl);

// Expects this exit status, and this one line on standard error ("" for none).
void ExpectCtl(const std::string& arguments, int status, const std::string& error = "");
