// Writes the seeds that are scripts of events: fuzz_seeds DIRECTORY (fuzz/corpus of the checkout).
// Those that are files, frames or a loader's answers are kept there as they are.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <string>

#include "lens/i2m.h"
#include "module/hd_frame.h"
#include "relay/pelco_d.h"
#include "sim/device.h"

namespace {

// Seeds by "TARGET/NAME".
using Seeds = std::map<std::string, std::string>;

std::string Raw(std::initializer_list<int> bytes) {
  std::string text;
  for (const int byte : bytes)
    text += static_cast<char>(byte);
  return text;
}

template <typename Range>
std::string Joined(const Range& bytes) {
  return {bytes.begin(), bytes.end()};
}

std::string Pelco(const PelcoCommand& command) {
  return Joined(PelcoBuild(command));
}

std::string Register(uint8_t kind, I2mAddress address, uint8_t high, uint8_t low) {
  return Joined(I2mBuild(kind, address, high, low));
}

// A read of the line that brings these bytes, 16 at most, and one that brings nothing.
std::string Answer(const std::string& bytes) {
  return Raw({static_cast<int>(bytes.size()) - 1}) + bytes;
}
const std::string kSilence = "\xFF";

std::string HdAnswer(HdCommand command, uint8_t value) {
  return Joined(HdBuild(command, HD_QUERY, value));
}

// --- Scripts of events -------------------------------------------------------------------------

// As mode_world.cpp reads them; `passes` follow the event, 15 is many.
enum Event : int {
  kConnect,
  kClientSends,
  kClientEnds,
  kClientStopsOrReads,
  kLocalSends,
  kRawDatagram,
  kControl,
  kRawCommand,
  kLineSpeaks,
  kLineBursts,
  kLineHangsUpOrReturns,
  kTimePasses,
  kWorkerSteps,
};
constexpr int kMany = 15;

std::string Do(Event event, int passes, const std::string& particulars = "") {
  return Raw({passes << 4 | event}) + particulars;
}

std::string Spoken(const std::string& bytes) {
  return Do(kLineSpeaks, 3, Raw({static_cast<int>(bytes.size())}) + bytes);
}

// Codes by their index in the script's table.
enum Code : int {
  kIrisStep = 3,
  kJoystick = 4,
  kGoToPreset = 6,
  kSetting = 14,
  kSearch = 15,
  kMenu = 16,
  kFocus = 17,
  kZoom = 18,
  kAssist = 29,
  kAfMode = 30,
};

std::string Command(Code code, int first, int second, int third, int passes = 3) {
  return Do(kControl, passes, Raw({code, first, second, third}));
}

std::string SlowClients() {
  std::string script = Do(kConnect, 3) + Do(kConnect, 3) + Do(kClientStopsOrReads, 0, Raw({1}));
  for (int i = 0; i < 40; ++i)
    script += Do(kLineBursts, kMany, Raw({200}));
  return script;
}

std::string ManyClients() {
  std::string script;
  for (int i = 0; i < 12; ++i)
    script += Do(kConnect, 2);
  for (int i = 0; i < 10; ++i)
    script += Do(kClientSends, 2, Raw({20 + i, i}));
  return script + Spoken("to all") + Do(kClientEnds, 3, Raw({0, 3})) +
         Do(kClientEnds, 3, Raw({1, 4}));
}

void AddCommon(Seeds* seeds, const std::string& target) {
  Seeds& s = *seeds;
  const std::string quiet(1, '\0');
  s[target + "/both_ways"] = quiet + Do(kConnect, 3) + Do(kClientSends, 3, Raw({4, 0})) +
                             Spoken("answer") + Do(kLocalSends, 3, Raw({5}));
  s[target + "/many_clients"] = quiet + ManyClients();
  s[target + "/slow_client"] = quiet + SlowClients() + Do(kClientStopsOrReads, kMany, Raw({1}));
  s[target + "/dropped_client"] =
      quiet + SlowClients() + Do(kTimePasses, 3, Raw({0xFF})) + Spoken("x");
  s[target + "/line_lost"] = quiet + Do(kConnect, 3) + Do(kClientSends, 1, Raw({9, 0})) +
                             Do(kLineHangsUpOrReturns, 3) + Do(kClientSends, 3, Raw({9, 0})) +
                             Do(kTimePasses, 3, Raw({0x1B})) + Do(kLineHangsUpOrReturns, 3) +
                             Do(kTimePasses, 3, Raw({0x1B})) + Do(kClientSends, 3, Raw({9, 0})) +
                             Spoken("back");
  s[target + "/stop"] = quiet + Do(kConnect, 3) + Do(kRawDatagram, 3, Raw({2, 0xFF, 0x7F}));
  s[target + "/update"] =
      quiet + Do(kRawCommand, 3, Raw({34, 0})) + Answer("\xDC") + Answer("\x12") + Answer("\x33");
  s[target + "/traced"] =
      Raw({1}) + Command(kMenu, 0, 0, 0) + Spoken("\xFF\x01") + Command(kZoom, 0, 0, 1);
}

void AddScripts(Seeds* seeds) {
  Seeds& s = *seeds;
  for (const char* target : {"relay_mode", "sd_mode", "hd_mode", "lens_mode"})
    AddCommon(seeds, target);
  s["relay_mode/joystick"] = Raw({0}) + Command(kJoystick, 40, 0xEC, 1) +
                             Command(kJoystick, 0, 0, 0) + Command(kGoToPreset, 7, 0, 0);
  s["sd_mode/replies"] = Raw({0}) + Spoken(Pelco({0, 0, 0, 0x12})) + Spoken("\xFF\x01\x02") +
                         Spoken(Pelco({0, 0, 0, 0x34})) + Command(kZoom, 0, 0, 0xFF);
  const std::string replies = Answer(HdAnswer(HD_VERSION, 0x21)) +
                              Answer(HdAnswer(HD_RESOLUTION_FLAG, 1)) +
                              Answer(HdAnswer(HD_SENSOR, 0x16));
  s["hd_mode/settings"] = Raw({0}) + replies + Command(kSetting, 5, 0, 0) +
                          Command(kSetting, 0xFF, 0, 0) + Command(kFocus, 1, 0, 0) +
                          Command(kZoom, 0, 0, 0xFF) + Command(kMenu, 0, 0, 0);
  s["hd_mode/updated"] = Raw({0}) + replies + Do(kRawCommand, 3, Raw({34, 0})) + Answer("\xDC") +
                         Answer("\x12") + Answer("\x33") + Answer("\x33") + Answer("\x15") +
                         Answer("\x33") + Answer("\x33") + Answer("\x33");
  s["hd_mode/known_module"] = Raw({0}) + replies + Do(kConnect, 2) + Spoken("\xFF\x01");
  const std::string reply = Answer(Register(I2M_READ, I2M_ADDR_VERSION, 0x81, 0x20));
  const std::string start = reply + reply;
  const std::string measures = Raw({2, 0, 0x10, 0}) + Raw({2, 0, 0x20, 0});
  s["lens_mode/drive"] = Raw({2}) + start + Command(kZoom, 0, 0, 100, kMany) +
                         Command(kZoom, 0, 0, 0, kMany) + Command(kFocus, 0x9C, 0, 0, 8) +
                         Command(kFocus, 0, 0, 0, 4);
  s["lens_mode/search"] =
      Raw({0}) + start + Command(kSearch, 0, 0, 0, kMany) + measures + measures + measures;
  s["lens_mode/assist"] =
      Raw({0}) + start + Command(kAssist, 0, 0, 0, kMany) + reply + reply + measures;
  s["lens_mode/micom_drives"] = Raw({0}) + start + Command(kAfMode, 0, 0, 0) +
                                Spoken(Register(I2M_WRITE, I2M_ADDR_FOCUS_VALUE_REQ, 0, 1)) +
                                measures + Command(kZoom, 0, 0, 1) + Command(kFocus, 1, 0, 0) +
                                Spoken(Register(I2M_WRITE, I2M_ADDR_MFZ_MODEL, 0, 0));
  std::string iris;
  for (int i = 0; i < 30; ++i)
    iris += Do(kWorkerSteps, 0) + Raw({8, 0, 4, 0, 0, 0x20, 0, 0, 0});
  s["lens_mode/iris_regulated"] = Raw({12}) + start + iris + Command(kIrisStep, 1, 0, 0);
  s["lens_mode/iris_open"] =
      Raw({4}) + start + Do(kWorkerSteps, 2) + Do(kWorkerSteps, 2) + Command(kIrisStep, 0xFF, 0, 0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: fuzz_seeds DIRECTORY\n");
    return EXIT_FAILURE;
  }
  Seeds seeds;
  AddScripts(&seeds);
  for (const auto& [name, bytes] : seeds) {
    const std::filesystem::path path = std::filesystem::path(argv[1]) / name;
    std::filesystem::create_directories(path.parent_path());
    sim::WriteTextFile(path.string(), bytes);
  }
  printf("%zu seeds\n", seeds.size());
  return EXIT_SUCCESS;
}
