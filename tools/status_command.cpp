#include <fcntl.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cmmap/param_block.h"
#include "daemon/settings.h"
#include "ipc/cicomm.h"
#include "lens/position.h"
#include "lens/video_source.h"
#include "relay/daemon_datagram.h"
#include "serial/serial_port.h"
#include "tools/commands.h"
#include "tools/daemon_ports.h"
#include "tools/device_mode.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/format.h"
#include "tools/frame_texts.h"
#include "tools/json.h"
#include "tools/output.h"
#include "tools/param_fields.h"
#include "tools/processes.h"
#include "tools/unique_fd.h"
#include "tools/usage.h"
#include "util/conf_file.h"

namespace tools {

namespace {

constexpr char kDaemonName[] = "rs232d";

// A fault prevents or delays the start of the daemon; a warning affects only a part of its
// functions.
enum class Grade { kOk, kWarning, kFault };

const char* GradeName(Grade grade) {
  constexpr const char* kNames[] = {"ok", "warning", "fault"};
  return kNames[static_cast<size_t>(grade)];
}

struct Check {
  Grade grade;
  const char* name;
  std::string finding;
  std::string remedy = "";  // "" if there is nothing to do
};

// Checks all conditions of a start, in the order in which a start needs them.
class Inspection {
 public:
  Inspection() {
    FindUdpPort();
    FindDaemon();
    CheckBlock();
    CheckLocks();
    CheckDevice();
    if (udp_port != 0) CheckPort("own port", "udp", udp_port, Grade::kFault);
    CheckPort("command port", "udp", RS232_COMMAND_PORT, Grade::kFault);
    CheckPtzPort();
    CheckFiles();
  }

  std::optional<Process> daemon;
  bool is_serving = false;
  std::vector<uint8_t> block = NewParamBlock();  // defaults if there is none
  std::string model;                             // "" if there is no block
  std::string device;                            // "" if none is configured
  bool is_device_open = false;
  int udp_port = 0;  // 0 if none is configured
  int ptz_port = 0;  // 0 if there is no PTZ server
  std::vector<std::string> clients;
  std::vector<Check> checks;

 private:
  using enum Grade;

  void Add(Check check) { checks.push_back(std::move(check)); }

  // Finds the process with both ports, or with the command port and the name; else one with the
  // name.
  void FindDaemon() {
    const PortHolder holder = HolderOfPort("udp", RS232_COMMAND_PORT);
    const PortHolder own = udp_port == 0 ? PortHolder() : HolderOfPort("udp", udp_port);
    const auto named = ProcessesNamed(kDaemonName);
    const bool has_name = std::ranges::count(named, holder.pid, &Process::pid) != 0;
    is_serving = holder.is_taken && (has_name || (own.is_taken && own.pid == holder.pid));
    if (is_serving && holder.pid != 0) {
      daemon = FindProcess(holder.pid);
    } else if (!named.empty()) {
      daemon = named.front();
    }
  }

  bool IsDaemon(pid_t pid) const { return daemon.has_value() && daemon->pid == pid; }

  int32_t Parameter(const char* name) const { return NumberIn(block, FindParamField(name)); }

  void CheckBlock() {
    constexpr int32_t kPortsNeeded = 2;
    std::vector<uint8_t> bytes;
    try {
      bytes = ReadFile(PARAM_BLOCK_PATH);
    } catch (const Failure& failure) {
      Add({kFault, "parameter block", failure.what(), "rs232ctl params create model=NAME"});
      return;
    }
    if (bytes.size() < PARAM_BLOCK_SIZE) {
      Add({kFault, "parameter block",
           Format("%s has %zu bytes, not %d", PARAM_BLOCK_PATH, bytes.size(), PARAM_BLOCK_SIZE),
           "remove it, then: rs232ctl params create model=NAME"});
      return;
    }
    block = std::move(bytes);
    model = ModelIn(block);
    Add({kOk, "parameter block", PARAM_BLOCK_PATH + (", model " + model)});
    const int32_t count = Parameter("serial-count");
    const bool is_enough = count >= kPortsNeeded;
    Add({is_enough ? kOk : kFault, "serial ports",
         Format("%d in the parameter block, %d needed", count, kPortsNeeded),
         is_enough ? "" : "rs232ctl params set serial-count=2"});
  }

  void CheckLocks() {
    const UniqueFd file(open(PARAM_BLOCK_PATH, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_len = 1;
    const bool is_locked = fcntl(file.Get(), F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
    const int semaphore = semget(PARAM_BLOCK_KEY, 1, 0);
    const int last = semaphore < 0 ? 0 : semctl(semaphore, 0, GETPID);
    // A semaphore that no process ever held was left by a creator that died; the daemon frees it.
    const bool is_held = last > 0 && semctl(semaphore, 0, GETVAL) == 0;
    if (!is_locked && !is_held) {
      Add({kOk, "block's locks", "free"});
      return;
    }
    const pid_t pid = is_locked ? lock.l_pid : last;
    Add({kFault, "block's locks",
         Format("%s held by %s; a start waits for it", is_locked ? "file lock" : "semaphore",
                ProcessText(pid).c_str()),
         FindProcess(pid).has_value() ? "end that process"
                                      : Format("ipcrm -S %d", PARAM_BLOCK_KEY)});
  }

  void CheckDevice() {
    const std::string path = SERIAL_CAPABILITIES_PATH;
    const std::string line = std::string(SERIAL_DEVICE_KEY) + "=/dev/...";
    std::array<char, CUTIL_CONF_VALUE_SIZE> value = {};
    CUTIL_GetConfValue(path.c_str(), SERIAL_DEVICE_KEY, value.data(), value.size());
    device = value.data();
    struct stat status = {};
    const auto fault = [this](const std::string& finding, const std::string& remedy) {
      Add({kFault, "serial device", finding, remedy});
    };
    if (access(path.c_str(), R_OK) != 0) {
      fault(path + " does not exist", "create it with the line " + line);
    } else if (device.empty()) {
      fault(path + " has no " + SERIAL_DEVICE_KEY, "add the line " + line);
    } else if (stat(device.c_str(), &status) != 0) {
      fault(device + " does not exist", "connect it, load its driver, or correct " + path);
    } else if (!S_ISCHR(status.st_mode)) {
      fault(device + " is not a device", "correct " + path);
    } else {
      CheckDeviceUsers();
    }
  }

  void CheckDeviceUsers() {
    std::error_code error;
    // On a virtual device, the far end may have the pty open, too.
    const bool is_pty = std::filesystem::canonical(device, error).string().starts_with("/dev/pts/");
    std::string others;
    for (const Process& process : ProcessesWithFile(device)) {
      is_device_open = is_device_open || IsDaemon(process.pid);
      if (!IsDaemon(process.pid) && !is_pty) others += ", also open in " + ProcessText(process.pid);
    }
    Add({others.empty() ? kOk : kWarning, "serial device", device + others,
         others.empty() ? "" : "end that process: both read from the same line"});
  }

  void FindUdpPort() {
    try {
      udp_port = DaemonUdpPort();
    } catch (const Failure& failure) {
      Add({kWarning, "own port", std::string(failure.what()) + ": the kernel chooses a port",
           Format("write %s=PORT to %s", UDP_PORT_KEY, UDP_PORT_TABLE_PATH)});
    }
  }

  void CheckPort(const char* name, const char* protocol, int port, Grade if_taken) {
    const PortHolder holder = HolderOfPort(protocol, port);
    const std::string text = Format("%s %d", protocol, port);
    if (!holder.is_taken) {
      Add({kOk, name, text + ", free"});
    } else if (holder.pid == 0) {
      Add({is_serving ? kOk : if_taken, name, text + ", in use by a process of another user",
           is_serving ? "" : "run this command as root"});
    } else if (IsDaemon(holder.pid)) {
      Add({kOk, name, text});
    } else {
      Add({if_taken, name, text + ", in use by " + ProcessText(holder.pid),
           "end that process, then restart the daemon"});
    }
  }

  void CheckPtzPort() {
    const int32_t port = Parameter("ptz-port");
    if (model.empty()) return;
    if (Parameter("ptz-enable") != 1) {
      Add({kOk, "PTZ port", "off"});
    } else if (!IsKnown(FindParamField("ptz-port"), port)) {
      Add({kWarning, "PTZ port", Format("%d is not from 1 to 32767: no PTZ server", port),
           "rs232ctl params set ptz-port=4001"});
    } else {
      ptz_port = port;
      CheckPort("PTZ port", "tcp", port, kWarning);
      if (is_serving) clients = ClientsOfPort(port);
    }
  }

  void CheckFiles() {
    if (access(CUTIL_TEMP_CONF_PATH, F_OK) == 0) {
      Add({kWarning, "settings",
           CUTIL_TEMP_CONF_PATH + std::string(" exists: no settings can be saved"),
           std::string("rm ") + CUTIL_TEMP_CONF_PATH});
    }
    if (ModeOfModel(model) != MODE_LENS) return;
    for (const std::string path : {MFZ_CONF_PATH, VIDEO_SOURCE_PATH}) {
      if (access(path.c_str(), R_OK) == 0) continue;
      Add({kWarning, "lens settings", path + " does not exist", "create it: touch " + path});
    }
  }
};

// --- Output ------------------------------------------------------------------------------------

// "9600 8N1".
std::string LineText(const SerialLine& line) {
  constexpr std::array<char, 3> kParities = {'N', 'E', 'O'};
  return Format("%d %d%c%d", line.baud_rate, line.data_bits,
                kParities[static_cast<size_t>(line.parity)], line.stop_bits);
}

// "2 d 03:04:05".
std::string UptimeText(long seconds) {
  constexpr long kDay = 24L * 60 * 60;
  const std::string days = seconds < kDay ? "" : Format("%ld d ", seconds / kDay);
  return days + Format("%02ld:%02ld:%02ld", seconds / 3600 % 24, seconds / 60 % 60, seconds % 60);
}

std::string DeviceState(const Inspection& device) {
  if (!device.daemon.has_value()) return "closed";
  // Without access to the descriptors of the daemon, the state is unknown.
  const std::string descriptors = "/proc/" + std::to_string(device.daemon->pid) + "/fd";
  if (access(descriptors.c_str(), R_OK) != 0) return "state visible only to root";
  return device.is_device_open ? "open" : "lost or not yet open";
}

void PrintState(const Inspection& device) {
  const auto row = [](const char* name, const std::string& text) {
    Print(stdout, "%-8s %s\n", name, text.c_str());
  };
  if (device.daemon.has_value()) {
    row("daemon", ProcessText(device.daemon->pid) + ", up " +
                      UptimeText(SecondsSinceStart(device.daemon->pid)) +
                      (device.is_serving ? "" : ", not ready"));
  }
  if (!device.model.empty()) {
    row("device", device.model + ", mode " + ModeName(ModeOfModel(device.model)));
  }
  if (!device.device.empty()) {
    row("line",
        device.device + ", " + LineText(LineSettingsIn(device.block)) + ", " + DeviceState(device));
  }
  if (!device.is_serving) return;
  row("clients", std::to_string(device.clients.size()) + (device.clients.empty() ? "" : ": ") +
                     Joined(device.clients));
}

void PrintChecks(const Inspection& device) {
  for (const auto& [grade, name, finding, remedy] : device.checks) {
    Print(stdout, "%-8s %-16s %s\n", GradeName(grade), name, finding.c_str());
    if (!remedy.empty()) Print(stdout, "%-8s %-16s -> %s\n", "", "", remedy.c_str());
  }
}

void PrintJsonStatus(const Inspection& device) {
  const auto check_value = [](const Check& check) {
    return NewJsonObject({{"name", NewJsonText(check.name)},
                          {"verdict", NewJsonText(GradeName(check.grade))},
                          {"finding", NewJsonText(check.finding)},
                          {"remedy", NewJsonText(check.remedy)}});
  };
  const auto number_or_null = [](bool is_there, int64_t number) {
    return is_there ? json_object_new_int64(number) : nullptr;
  };
  const bool runs = device.daemon.has_value();
  const pid_t pid = runs ? device.daemon->pid : 0;
  PrintJson(OwnJson(NewJsonObject(
      {{"running", json_object_new_boolean(runs)},
       {"serving", json_object_new_boolean(device.is_serving)},
       {"pid", number_or_null(runs, pid)},
       {"uptime", number_or_null(runs, runs ? SecondsSinceStart(pid) : 0)},
       {"model", NewJsonText(device.model)},
       {"mode", device.model.empty() ? nullptr : NewJsonText(ModeName(ModeOfModel(device.model)))},
       {"device", NewJsonText(device.device)},
       {"line", NewJsonText(LineText(LineSettingsIn(device.block)))},
       {"device_state", NewJsonText(DeviceState(device))},
       {"udp_port", number_or_null(device.udp_port != 0, device.udp_port)},
       {"ptz_port", number_or_null(device.ptz_port != 0, device.ptz_port)},
       {"clients", NewJsonArray(device.clients, NewJsonText)},
       {"checks", NewJsonArray(device.checks, check_value)}})));
}

void RunStatus(bool is_json) {
  const Inspection device;
  if (is_json) {
    PrintJsonStatus(device);
  } else {
    PrintState(device);
    PrintChecks(device);
  }
  if (device.is_serving) return;
  fflush(stdout);  // before the line on standard error
  const auto faults = std::ranges::count(device.checks, Grade::kFault, &Check::grade);
  throw Failure(EXIT_STATUS_NO_DAEMON,
                std::string(kDaemonName) + " is not " +
                    (device.daemon.has_value() ? "ready" : "running") + "; " +
                    (faults == 0 ? "no fault found"
                                 : Count(static_cast<size_t>(faults), "fault") + " found"));
}

}  // namespace

void AddStatusCommand(CLI::App* app) {
  CLI::App* status =
      app->add_subcommand("status", "Print the state of the daemon, or why it does not run");
  const auto is_json = std::make_shared<bool>();
  status->add_flag("--json", *is_json, "print a JSON object");
  status->footer(
      "Checks every condition of a start and prints a remedy for each fault. The exit status is 3 "
      "if the daemon is not ready. Some details are visible only to root.\n"
      "Example: rs232ctl status --json");
  status->final_callback([is_json] { RunStatus(*is_json); });
}

}  // namespace tools
