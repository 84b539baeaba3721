// The tool as a child process, for tests of it against the real daemon.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "sim/daemon_process.h"

// How a run of the tool ended.
struct CtlResult {
  std::optional<int> status;  // nothing when it did not end
  std::string output;
  std::string errors;
};

// Starts the tool with these arguments, as a shell reads them. `ctl.Stop` and the like work on the
// tool itself.
std::unique_ptr<sim::DaemonProcess> StartCtl(const std::string& arguments);

// Runs it to its end, without an input.
CtlResult RunCtl(const std::string& arguments);

CtlResult AwaitCtl(sim::DaemonProcess* ctl);

// Expects that it ends like this, with this one line on standard error ("" for none).
void ExpectCtl(const std::string& arguments, int status, const std::string& error = "");
