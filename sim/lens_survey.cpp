#include "sim/lens_survey.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <random>
#include <stdexcept>

#include "ipc/cicomm.h"
#include "sim/daemon_process.h"
#include "sim/lens_rig.h"
#include "sim/peers.h"
#include "sim/world.h"

namespace sim {
namespace {

constexpr milliseconds kSearchLimit{20000};
// A search backs off by 40 steps from the best position. A peak nearer to the zero end would send
// the lens into it.
constexpr int kLowestPeak = 50;

void Require(bool good, const char* what) {
  if (!good) throw std::runtime_error(what);
}

void WriteAll(int fd, const std::string& text) {
  Require(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
          "cannot keep the log");
}

// A pipe whose reader never waits.
struct Pipe {
  Pipe() {
    std::array<int, 2> ends = {};
    Require(pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
    reader.Reset(ends[0]);
    writer.Reset(ends[1]);
    Require(fcntl(reader.Get(), F_SETFL, O_NONBLOCK) == 0, "no pipe");
  }
  UniqueFd reader;
  UniqueFd writer;
};

// The daemon, with its trace, and a lens in focus trouble around it.
class SurveyedDevice {
 public:
  SurveyedDevice(const LensSurvey& survey, const LensPose& pose, uint32_t seed)
      : rig_(&line_, pose, seed, BuildFor(survey)) {
    DeviceConfig config;
    config.model = "QB-420";
    InstallDevice(config);
    InstallLens({.zoom = pose.zoom, .focus = pose.focus});
    daemon_.emplace(survey.daemon, std::vector<std::string>{"1"}, output_.writer.Get());
    Require(daemon_->WaitServing(config), "the daemon does not come up");
  }

  void Show(const Scene& scene) {
    rig_.With([&](const LensMicom&, CameraDaemon& camera) { camera.scene = scene; });
  }

  // Runs one search to its end.
  void Search() {
    SendControl(CAMERA_CODE_FOCUS_SEARCH);
    WaitFor("TRACE\t");
    WaitFor("--> saved\n");
  }

  // Moves the focus by the least that a command can.
  void Nudge() {
    SendControl(CAMERA_CODE_FOCUS, -1);
    SendControl(CAMERA_CODE_FOCUS);
    WaitFor("--> saved\n");
  }

  // Ends the daemon and returns everything that it printed.
  const std::string& Stop() {
    Require(daemon_->Stop() == 0, "the daemon does not end well");
    Read();
    return text_;
  }

  // A machine that stalls makes the simulated motor lose steps, as no real one would: the lens is
  // no longer where the daemon takes it to be.
  bool LostSteps() {
    return rig_.With([](const LensMicom& micom, const CameraDaemon&) {
      return micom.Focus().Lost() + micom.Focus().Slipped() > 0;
    });
  }

 private:
  static LensBuild BuildFor(const LensSurvey& survey) {
    LensBuild build;
    build.zoom_travel = std::max(build.zoom_travel, survey.curve.back().zoom);
    return build;
  }

  void SendControl(uint16_t code, int first = 0) {
    sender_.SendTo(RS232_COMMAND_PORT, CameraControlPacket(Control(code, first)));
  }

  // Waits for `text` behind what was waited for last.
  void WaitFor(const std::string& text) {
    const auto end = Clock::now() + kSearchLimit;
    size_t at = 0;
    while ((at = text_.find(text, seen_)) == std::string::npos) {
      Require(Clock::now() < end, "the daemon does not get on");
      constexpr int kLookMs = 100;
      pollfd source = {.fd = output_.reader.Get(), .events = POLLIN, .revents = 0};
      poll(&source, 1, kLookMs);
      Read();
    }
    seen_ = at + text.size();
  }

  void Read() {
    std::array<char, 4096> bytes;
    ssize_t count = 0;
    while ((count = read(output_.reader.Get(), bytes.data(), bytes.size())) > 0)
      text_.append(bytes.data(), static_cast<size_t>(count));
  }

  SyslogRecorder syslog_;
  PtyLine line_;
  UdpPeer sender_;
  LensRig rig_;
  Pipe output_;
  std::string text_;
  size_t seen_ = 0;
  std::optional<DaemonProcess> daemon_;
};

// What a world hands to the process that started all of them.
struct Share {
  int searches = 0;
  int disturbed = 0;
  bool good = false;  // no step was lost
};

Scene SceneOf(const LensSurvey& survey) {
  Scene scene;
  scene.curve = survey.curve;
  scene.noise = survey.noise * scene.height;
  return scene;
}

// The scene with something in front of the lens, which stands at `zoom`.
Scene Disturbed(const Scene& scene, int zoom, std::mt19937* random) {
  Scene other = scene;
  const double distance = std::uniform_real_distribution<double>(60, 150)(*random);
  const bool below = std::bernoulli_distribution(0.5)(*random);
  const bool has_room = InFocus(zoom, scene.curve) - distance > kLowestPeak;
  other.offset = below && has_room ? -distance : distance;
  return other;
}

Share SurveyEntry(const LensSurvey& survey, size_t entry, std::string* log) {
  constexpr double kReach = 60;  // how far out of focus the lens stands
  const auto seed = static_cast<uint32_t>(entry) + 1;
  std::seed_seq seeds{seed};
  std::mt19937 random(seeds);
  const ZfEntry& truth = survey.curve[entry];
  const double off = std::uniform_real_distribution<double>(-kReach, kReach)(random);
  const int focus = std::max(truth.focus + static_cast<int>(off), kLowestPeak);
  SurveyedDevice device(survey, {.zoom = truth.zoom, .focus = focus, .iris = 40}, seed);
  const Scene scene = SceneOf(survey);
  Share share;
  for (int i = 0; i < survey.searches; ++i) {
    const bool disturbed = std::bernoulli_distribution(survey.disturbed)(random);
    device.Show(disturbed ? Disturbed(scene, truth.zoom, &random) : scene);
    if (i > 0) {
      device.Nudge();
      device.Nudge();
    }
    device.Search();
    ++share.searches;
    share.disturbed += disturbed ? 1 : 0;
  }
  *log = device.Stop();
  share.good = !device.LostSteps();
  return share;
}

int RunShare(const LensSurvey& survey, int world, int log, int shares) {
  try {
    for (size_t entry = static_cast<size_t>(world); entry < survey.curve.size();
         entry += static_cast<size_t>(survey.worlds)) {
      constexpr int kAttempts = 5;
      Share share;
      std::string text;
      for (int i = 0; i < kAttempts && !share.good; ++i)
        share = SurveyEntry(survey, entry, &text);
      Require(share.good, "the simulated lens loses steps: the machine is too busy");
      WriteAll(log, text);
      Require(write(shares, &share, sizeof(share)) == sizeof(share), "cannot report");
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    fprintf(stderr, "lens survey: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

// A file that all worlds write to.
UniqueFd SharedFile() {
  UniqueFd file(memfd_create("lens_survey", MFD_CLOEXEC));
  Require(file.IsOpen() && fcntl(file.Get(), F_SETFL, O_APPEND) == 0, "no memory file");
  return file;
}

std::string ReadWhole(const UniqueFd& file) {
  Require(lseek(file.Get(), 0, SEEK_SET) == 0, "cannot read the log");
  std::string text;
  std::array<char, 65536> bytes;
  ssize_t count = 0;
  while ((count = read(file.Get(), bytes.data(), bytes.size())) > 0)
    text.append(bytes.data(), static_cast<size_t>(count));
  return text;
}

}  // namespace

SurveyResult RunSurvey(const LensSurvey& survey) {
  const UniqueFd log = SharedFile();
  const UniqueFd shares = SharedFile();
  const int failed = RunInWorlds(
      survey.worlds, [&](int world) { return RunShare(survey, world, log.Get(), shares.Get()); });
  Require(failed == 0, "not every world could survey its share");
  SurveyResult result = {.log = ReadWhole(log), .searches = 0, .disturbed = 0};
  const std::string records = ReadWhole(shares);
  for (size_t at = 0; at + sizeof(Share) <= records.size(); at += sizeof(Share)) {
    Share share;
    std::copy_n(records.data() + at, sizeof(share), reinterpret_cast<char*>(&share));
    result.searches += share.searches;
    result.disturbed += share.disturbed;
  }
  return result;
}

}  // namespace sim
