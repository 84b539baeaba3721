// faults: injects a failure into the calls of the daemon, one at a time.
//
//   faults matrix [MODE]   every planned failure of every mode, or of MODE
//   faults sample MODE     about 32 of them
//   faults kills [COUNT]   SIGKILL at every call of a start and of a save, then at COUNT random
//                          times of each (default: 500)
//
// Each mode and each kind of kills runs in a world of its own, where this program restarts itself
// on the virtual clock as "faults VERB MODE COUNT".
#include <linux/close_range.h>

#include <cstdlib>
#include <random>

#include "tests/fault/session.h"

namespace {

constexpr CameraControl kZoom = sim::Control(CAMERA_CODE_ZOOM, 0, 0, 1);
const std::vector<fault::Mode> kModes = {
    {"relay", "QB-100", kZoom, "FF 01 00 20 00 00 21"},
    {"sd", "QB-210", kZoom, "FF 01 00 20 00 00 21"},
    {"hd", "QB-310", kZoom, "FF 41 02 00 00 00 01 00 00 43"},
    {"update", "QB-310", kZoom, "FF 41 02 00 00 00 01 00 00 43", true},
    {"lens", "QB-420", sim::Control(CAMERA_CODE_IRIS_STEP, 1), "A5 40 0B 00 04 F4"},
};

int RunMatrix(fault::Session* session, bool is_sample) {
  const auto points = fault::PlanMatrix(session->Record(false));
  const size_t stride = is_sample ? std::max<size_t>(points.size() / 32, 1) : 1;
  for (size_t i = 0; i < points.size(); i += stride)
    session->Run(points[i]);
  return session->Report("failures");
}

// Kills the daemon at every call of a start, or of a save, then at `count` random times.
int RunKills(fault::Session* session, bool is_start, int count) {
  for (const fault::Call& call : session->Record(is_start)) {
    const bool is_of_save = call.subject.find("temp.conf") != std::string::npos ||
                            call.subject.find("mfz.conf") != std::string::npos;
    const fault::Point point = {.call = call, .error = FAULT_KILL};
    if (is_start || is_of_save) session->RunKilled(point, 0);
  }
  std::mt19937 random(0);
  for (int i = 0; i < count; ++i)
    session->RunKilled({}, 1 + static_cast<long>(random() % (is_start ? 10'000 : 60'000)));
  return session->Report("kills");
}

// Runs inside the world of the mode.
int RunMode(const std::string& verb, const std::string& name, int count) {
  if (!sim::VirtualTime()->start("/dev/.world/vtime")) return EXIT_FAILURE;
  fault::Session session(*std::ranges::find(kModes, name, &fault::Mode::name));
  if (verb == "kills") return RunKills(&session, name == "relay", count);
  return RunMatrix(&session, verb == "sample");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string verb = argc > 1 ? argv[1] : "";
  const std::string choice = argc > 2 ? argv[2] : "";
  if (sim::VirtualTime() != nullptr) return RunMode(verb, choice, atoi(argv[3]));
  const bool is_kills = verb == "kills";
  std::string count = is_kills && argc > 2 ? choice : "500";
  std::vector<std::string> modes;
  for (const auto& [name, model, control, frame, reboots] : kModes) {
    const bool is_killed = name == "relay" || name == "lens";
    if (is_kills ? is_killed : choice.empty() || choice == name) modes.push_back(name);
  }
  if (modes.empty() || (!is_kills && verb != "matrix" && verb != "sample")) {
    fprintf(stderr, "usage: faults matrix [MODE] | sample MODE | kills [COUNT]\n");
    return EXIT_FAILURE;
  }
  // Inherited descriptors must not reach the device programs.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  int status = EXIT_SUCCESS;
  for (std::string& mode : modes) {
    std::vector<char*> again = {argv[0], argv[1], mode.data(), count.data(), nullptr};
    status |= sim::RunInWorld([&] {
      sim::PreloadVirtualTime(again.data());
      return EXIT_FAILURE;  // no virtual time
    });
  }
  return status;
}
