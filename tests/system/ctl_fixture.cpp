#include "tests/system/ctl_fixture.h"

std::unique_ptr<sim::DaemonProcess> StartCtl(const std::string& arguments) {
  const std::string line = std::string("exec '") + RS232CTL_PATH + "' " + arguments;
  return std::make_unique<sim::DaemonProcess>("/bin/sh", std::vector<std::string>{"-c", line});
}

CtlResult AwaitCtl(sim::DaemonProcess* ctl) {
  const auto status = ctl->WaitEnd();
  return {.status = status, .output = ctl->Output(), .errors = ctl->Errors()};
}

CtlResult RunCtl(const std::string& arguments) {
  const bool has_input = arguments.find('<') != std::string::npos;
  const auto ctl = StartCtl(arguments + (has_input ? "" : " </dev/null"));
  return AwaitCtl(ctl.get());
}

void ExpectCtl(const std::string& arguments, int status, const std::string& error) {
  const CtlResult result = RunCtl(arguments);
  EXPECT_EQ(result.status, status) << arguments << ": " << result.output << result.errors;
  EXPECT_EQ(result.errors, error.empty() ? "" : "rs232ctl: " + error + "\n") << arguments;
}
