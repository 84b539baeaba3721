// In: what an HD camera module answers to the three questions about itself (fake_line.h).
// Holds: each question is one good frame and gets its time, no more; the information file is
// written, in three lines of known texts, exactly when every answer brought a value.
#include <cstdio>

#include "fuzz/check.h"
#include "fuzz/fake_line.h"
#include "fuzz/input.h"
#include "fuzz/stand_ins.h"
#include "fuzz/target.h"
#include "module/camera_info.h"

namespace {

constexpr HdCommand kQuestions[] = {HD_VERSION, HD_RESOLUTION_FLAG, HD_SENSOR};
constexpr int64_t kLongestUs = int64_t{3} * (CAMERA_INFO_ANSWER_S + 1) * 1'100'000;

// The value that came with the answer to a question, HD_NO_VALUE without one.
uint8_t ValueOf(const fuzz::FakeLine& line, size_t question) {
  std::vector<uint8_t> answer;
  for (const fuzz::FakeLine::Reading& reading : line.readings) {
    if (reading.writes_before == question + 1) answer.push_back(reading.byte);
  }
  FUZZ_CHECK(answer.size() <= HD_FRAME_SIZE);
  return answer.size() > HD_DATA_AT ? answer[HD_DATA_AT] : HD_NO_VALUE;
}

void CheckFile(const HdCameraInfo& info) {
  const bool is_known = info.version != HD_NO_VALUE && info.resolution_flag != HD_NO_VALUE &&
                        info.sensor != HD_NO_VALUE;
  const std::vector<std::string>& commands = fuzz::Commands();
  FUZZ_CHECK(commands.size() == (is_known ? 3 : 0));
  if (!is_known) return;
  const std::string version =
      std::to_string(info.version / 16) + '.' + std::to_string(info.version % 16);
  FUZZ_CHECK(commands[0] == "echo VERSION=" + version + " > /var/nvt/camera.info");
  FUZZ_CHECK(commands[1].starts_with("echo MODEL=") &&
             commands[1].ends_with(" >> /var/nvt/camera.info"));
  FUZZ_CHECK(commands[2].starts_with("echo RESOLUTION=") &&
             commands[2].ends_with(" >> /var/nvt/camera.info"));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::BeginExecution();
  fuzz::Commands().clear();
  fuzz::Input input(data, size);
  const fuzz::FakeLine line(&input);
  const Rs232Context context = {};
  HdCameraInfo info;
  const int64_t begin_us = fuzz::NowUs();
  FUZZ_CHECK(HdCameraInfoWrite(context, &info) == 0);
  FUZZ_CHECK(fuzz::NowUs() - begin_us <= kLongestUs);

  FUZZ_CHECK(line.writes.size() == std::size(kQuestions));
  for (size_t i = 0; i < line.writes.size(); ++i) {
    const HdFrame frame = HdBuild(kQuestions[i], HD_QUERY, HD_NO_DATA);
    FUZZ_CHECK(
        std::equal(frame.begin(), frame.end(), line.writes[i].begin(), line.writes[i].end()));
  }
  FUZZ_CHECK(info.version == ValueOf(line, 0));
  FUZZ_CHECK(info.resolution_flag == ValueOf(line, 1));
  FUZZ_CHECK(info.sensor == ValueOf(line, 2));
  CheckFile(info);
  return 0;
}
