// What the SD and HD modes send for control codes, and what they read from their modules.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "module/camera_info.h"
#include "module/hd_frame.h"
#include "module/hd_mode.h"
#include "module/sd_mode.h"
#include "relay/pelco_d.h"

namespace {

using Bytes = std::vector<uint8_t>;

CameraControl Control(uint16_t code, int8_t first, int8_t third) {
  return {
      .target = CAMERA_CONTROL_TARGET, .code = code, .first = first, .second = 0, .third = third};
}

TEST(SdMode, ControlCodesBecomePelcoFrames) {
  const Bytes stop = {0xFF, 1, 0, 0, 0, 0, 1};
  const struct {
    uint16_t code;
    int8_t third;
    std::vector<Bytes> frames;
  } rows[] = {
      {0x2000, 0, {{0xFF, 1, 0, 0x03, 0, 0x5F, 0x63}, stop}},
      {0x2005, 0, {{0xFF, 1, 0, 0x03, 0, 0x5F, 0x63}, stop}},
      {0x2007, 0, {{0xFF, 1, 0, 0x08, 0, 0, 0x09}, stop}},
      {0x2008, 0, {{0xFF, 1, 0, 0x10, 0, 0, 0x11}, stop}},
      {0x2009, 0, {{0xFF, 1, 0, 0x04, 0, 0, 0x05}, stop}},
      {0x200A, 0, {{0xFF, 1, 0, 0x02, 0, 0, 0x03}, stop}},
      {0x2002, 5, {{0xFF, 1, 0, 0x20, 0, 0, 0x21}}},
      {0x2002, -5, {{0xFF, 1, 0, 0x40, 0, 0, 0x41}}},
      {0x2002, 0, {stop}},
      {0x2001, 1, {}},
      {0x2003, 1, {}},
      {0x2004, 1, {}},
      {0x2006, 1, {}},
      {0x1093, 1, {}},
      {0xFFFF, 1, {}},
  };
  for (const auto& row : rows) {
    const SdSequence sequence = SdTranslate(Control(row.code, 0, row.third));
    std::vector<Bytes> frames;
    for (int i = 0; i < sequence.count; ++i) {
      const SdFrame& part = sequence.frames[static_cast<size_t>(i)];
      const PelcoFrame frame =
          PelcoBuild({.command1 = 0, .command2 = part.command2, .data1 = 0, .data2 = part.data2});
      frames.emplace_back(frame.begin(), frame.end());
    }
    EXPECT_EQ(frames, row.frames) << std::hex << row.code << " " << int{row.third};
  }
}

TEST(HdMode, ControlCodesBecomeMicomFrames) {
  const struct {
    uint16_t code;
    int8_t first;
    int8_t third;
    Bytes frame;  // empty: nothing is sent
  } rows[] = {
      {0x2000, 0, 0, {0xFF, 0x4B, 2, 0, 0, 0, 0, 0, 0, 0x4C}},
      {0x2005, 0, 0, {0xFF, 0x4B, 2, 0, 0, 0, 0, 0, 0, 0x4C}},
      {0x2007, 9, 9, {0xFF, 0x4B, 2, 0, 0, 0, 1, 0, 0, 0x4D}},
      {0x2008, 0, 0, {0xFF, 0x4B, 2, 0, 0, 0, 2, 0, 0, 0x4E}},
      {0x2009, 0, 0, {0xFF, 0x4B, 2, 0, 0, 0, 3, 0, 0, 0x4F}},
      {0x200A, 0, 0, {0xFF, 0x4B, 2, 0, 0, 0, 4, 0, 0, 0x50}},
      {0x2002, -1, 1, {0xFF, 0x41, 2, 0, 0, 0, 1, 0, 0, 0x43}},
      {0x2002, 1, -1, {0xFF, 0x41, 2, 0, 0, 0, 2, 0, 0, 0x44}},
      {0x2002, 1, 0, {0xFF, 0x41, 2, 0, 0, 0, 0, 0, 0, 0x42}},
      {0x2001, 1, -1, {0xFF, 0x41, 2, 0, 0, 0, 0x18, 0, 0, 0x5A}},
      {0x2001, -128, 1, {0xFF, 0x41, 2, 0, 0, 0, 0x14, 0, 0, 0x56}},
      {0x2001, 0, 1, {0xFF, 0x41, 2, 0, 0, 0, 0, 0, 0, 0x42}},
      {0x1202, 0, 0, {0xFF, 0x41, 2, 0, 0, 0, 3, 0, 0, 0x45}},
      {0x1093, 5, 0, {0xFF, 0x21, 2, 0, 0, 0, 5, 0, 0, 0x27}},
      {0x1093, 0, 7, {0xFF, 0x21, 2, 0, 0, 0, 0, 0, 0, 0x22}},
      {0x1093, -2, 0, {0xFF, 0x21, 2, 0, 0, 0, 0xFE, 0, 0, 0x20}},
      {0x1093, -1, 0, {}},
      {0x2003, 1, 1, {}},
      {0x1012, 1, 1, {}},
  };
  for (const auto& row : rows) {
    HdSetting setting;
    Bytes sent;
    if (HdTranslate(Control(row.code, row.first, row.third), &setting)) {
      const HdFrame frame = HdBuild(setting.command, HD_SETTING, setting.data);
      sent.assign(frame.begin(), frame.end());
    }
    EXPECT_EQ(sent, row.frame) << std::hex << row.code << " " << int{row.first};
  }
}

TEST(HdMode, QueryAndUpdateFrames) {
  EXPECT_EQ(HdBuild(HD_VERSION, HD_QUERY, 0), (HdFrame{0xFF, 0xE3, 1, 0, 0, 0, 0, 0, 0, 0xE3}));
  EXPECT_EQ(HdBuild(HD_RESOLUTION_FLAG, HD_QUERY, 0),
            (HdFrame{0xFF, 0x5C, 1, 0, 0, 0, 0, 0, 0, 0x5C}));
  EXPECT_EQ(HdBuild(HD_SENSOR, HD_QUERY, 0), (HdFrame{0xFF, 0xE0, 1, 0, 0, 0, 0, 0, 0, 0xE0}));
  EXPECT_EQ(HdBuild(HD_FIRMWARE_UPDATE, HD_SETTING, 0),
            (HdFrame{0xFF, 0xFD, 2, 0, 0, 0, 0, 0, 0, 0xFE}));
}

TEST(ModuleModes, MissingContextIsRefusedWithALine) {
  const struct {
    const char* name;
    int (*run)(Rs232Context* p_param);
  } rows[] = {{"camd_cmod_sd", camd_cmod_sd}, {"camd_cmod_hd", camd_cmod_hd}};
  for (const auto& row : rows) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(row.run(nullptr), -1);
    fflush(stdout);
    const std::string line = testing::internal::GetCapturedStdout();
    EXPECT_EQ(line.rfind(std::string("[") + row.name + "] Error line[", 0), 0U) << line;
    EXPECT_NE(line.find("], reason('p_param' is NULL)\n"), std::string::npos) << line;
  }
}

TEST(CameraInfo, SdModelIsTheSecondDataByteOfEveryFrame) {
  const struct {
    const char* legend;
    Bytes bytes;
    Bytes models;
  } rows[] = {
      {"one frame", {0xFF, 1, 0, 0, 0, 0x12, 0x13}, {0x12}},
      {"two frames", {0xFF, 1, 0, 0, 0, 0x12, 0x13, 0xFF, 1, 0, 0, 0, 0x34, 0x35}, {0x12, 0x34}},
      {"noise before", {0x00, 0x12, 0xFE, 0xFF, 1, 0, 0, 0, 0x12, 0x13}, {0x12}},
      {"wrong checksum", {0xFF, 1, 0, 0, 0, 0x12, 0x99}, {0x12}},
      {"sync bytes inside", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}, {0xFF}},
      {"one byte short", {0xFF, 1, 0, 0, 0, 0x12}, {}},
      {"no sync", {1, 0, 0, 0, 0x12, 0x13, 1, 0}, {}},
  };
  for (const auto& row : rows) {
    SdCameraInfo info;
    Bytes models;
    for (const uint8_t byte : row.bytes) {
      if (SdCameraInfoTake(&info, byte)) models.push_back(info.model);
    }
    EXPECT_EQ(models, row.models) << row.legend;
    EXPECT_EQ(info.model, row.models.empty() ? SD_NO_MODEL : row.models.back()) << row.legend;
  }
}

TEST(CameraInfo, HdTextsFollowSensorAndFlag) {
  const struct {
    uint8_t sensor;
    const char* model;
    const char* flag_clear;
    const char* flag_set;
  } rows[] = {
      {0x16, "Panasonic 1.3M", "1280*720", "1280*1024"},
      {0x26, "Panasonic 2M", "1080p", "720p"},
      {0x36, "OmniVision 2M", "1080p", "720p"},
      {0x46, "Sony 2M", "1080p", "720p"},
      {0x55, "Unknown", "1080p", "720p"},
      {0x00, "Unknown", "1080p", "720p"},
  };
  for (const auto& row : rows) {
    EXPECT_STREQ(HdModelText(row.sensor), row.model);
    EXPECT_STREQ(HdResolutionText(row.sensor, 0), row.flag_clear);
    EXPECT_STREQ(HdResolutionText(row.sensor, 1), row.flag_set);
    EXPECT_STREQ(HdResolutionText(row.sensor, 0x80), row.flag_set);
  }
}

}  // namespace
