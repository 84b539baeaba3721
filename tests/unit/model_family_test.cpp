#include "daemon/model_family.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "module/hd_mode.h"
#include "module/sd_mode.h"

namespace {

// "-" none, or the letter of the one family that claims the model.
std::string FamiliesOf(const char* model) {
  std::string families;
  if (IsQb710Model(model) != 0) families += '7';
  if (IsSdModuleModel(model) != 0) families += 'S';
  if (IsHdModuleModel(model) != 0) families += 'H';
  if (IsMotorizedLensModel(model) != 0) families += 'L';
  return families.empty() ? "-" : families;
}

TEST(ModelFamily, ClaimsWholeNamesOnly) {
  const struct {
    const char* model;
    const char* families;
  } rows[] = {
      {"QB-710", "7"},  {"QB-210", "S"},  {"QB-220", "S"}, {"QB-310", "H"}, {"QB-350", "H"},
      {"QB-410", "L"},  {"QB-480", "L"},  {"QB-610", "-"}, {"QB-620", "-"}, {"", "-"},
      {"QB-230", "-"},  {"QB-360", "-"},  {"QB-490", "-"}, {"qb-210", "-"}, {"QB-210 ", "-"},
      {"QB-2100", "-"}, {" QB-310", "-"}, {"QB-41", "-"},  {"QB-711", "-"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(FamiliesOf(row.model), row.families) << row.model;
}

TEST(ModelFamily, ModesRefuseAMissingContextWithALine) {
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

}  // namespace
