#include "daemon/model_family.h"

#include "module/hd_mode.h"
#include "module/sd_mode.h"
#include "tests/support.h"

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
  const std::pair<const char*, const char*> rows[] = {
      {"QB-710", "7"},  {"QB-210", "S"},  {"QB-220", "S"}, {"QB-310", "H"}, {"QB-350", "H"},
      {"QB-410", "L"},  {"QB-480", "L"},  {"QB-610", "-"}, {"QB-620", "-"}, {"", "-"},
      {"QB-230", "-"},  {"QB-360", "-"},  {"QB-490", "-"}, {"qb-210", "-"}, {"QB-210 ", "-"},
      {"QB-2100", "-"}, {" QB-310", "-"}, {"QB-41", "-"},  {"QB-711", "-"},
  };
  for (const auto& [model, families] : rows)
    EXPECT_EQ(FamiliesOf(model), families) << model;
}

TEST(ModelFamily, ModesRefuseAMissingContextWithALine) {
  const std::pair<std::string, int (*)(Rs232Context * p_param)> rows[] = {
      {"camd_cmod_sd", camd_cmod_sd}, {"camd_cmod_hd", camd_cmod_hd}};
  for (const auto& row : rows) {
    const std::string line = support::OnStdout([&] { return row.second(nullptr); });
    EXPECT_EQ(line.find("-1 [" + row.first + "] Error line["), 0U) << line;
    EXPECT_NE(line.find("], reason('p_param' is NULL)\n"), std::string::npos) << line;
  }
}

}  // namespace
