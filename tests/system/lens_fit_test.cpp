// Calibration of a lens, end to end: the real daemon searches the focus of a simulated lens all
// over its zoom range, with noise in the focus measure and a tenth of the searches disturbed, and
// the tool makes a tracking table of what the daemon printed.
//
// The searches take real time; they run in many worlds at once, so this program is not in a world
// itself.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/lens_survey.h"
#include "tests/system/shell.h"

namespace {

struct Lens {
  const char* name;
  std::span<const ZfEntry> curve;
  int worlds;
};

class LensFitTest : public testing::TestWithParam<Lens> {};

// The pairs of a table as it is pasted into a source.
std::vector<ZfEntry> PairsOf(const std::string& text) {
  std::vector<ZfEntry> pairs;
  for (size_t at = 0; (at = text.find('{', at)) != std::string::npos; ++at) {
    ZfEntry entry = {};
    if (sscanf(text.c_str() + at, "{%d, %d}", &entry.zoom, &entry.focus) == 2)
      pairs.push_back(entry);
  }
  return pairs;
}

TEST_P(LensFitTest, TableOfTheToolIsTheLens) {
  const Lens& lens = GetParam();
  const sim::SurveyResult survey = sim::RunSurvey({.curve = lens.curve,
                                                   .daemon = RS232D_PATH,
                                                   .worlds = lens.worlds,
                                                   .searches = 6,
                                                   .noise = 0.005,
                                                   .disturbed = 0.1});
  EXPECT_EQ(survey.searches, 6 * static_cast<int>(lens.curve.size()));
  EXPECT_GE(survey.disturbed, survey.searches / 20);
  const std::string base =
      testing::TempDir() + "lens_fit_" + lens.name + "." + std::to_string(getpid());
  sim::WriteTextFile(base + ".log", survey.log);
  const ShellResult outcome =
      Shell("$CTL lens fit " + base + ".log --out " + base + ".h --svg " + base + ".svg");
  ASSERT_EQ(outcome.status, 0) << outcome.text;
  EXPECT_NE(outcome.text.find(std::to_string(survey.searches) + " trace points"), std::string::npos)
      << outcome.text;
  EXPECT_NE(sim::ReadTextFile(base + ".svg").find("</svg>"), std::string::npos);
  const std::vector<ZfEntry> table = PairsOf(sim::ReadTextFile(base + ".h"));
  ASSERT_EQ(table.size(), lens.curve.size());
  int worst = 0;
  for (size_t i = 0; i < table.size(); ++i) {
    EXPECT_EQ(table[i].zoom, lens.curve[i].zoom);
    EXPECT_NEAR(table[i].focus, lens.curve[i].focus, 5) << "at zoom " << table[i].zoom;
    worst = std::max(worst, std::abs(table[i].focus - lens.curve[i].focus));
  }
  printf("%s: %d searches, %d disturbed, worst entry %d steps off\n", lens.name, survey.searches,
         survey.disturbed, worst);
  for (const char* kind : {".log", ".h", ".svg"})
    std::filesystem::remove(base + kind);
}

INSTANTIATE_TEST_SUITE_P(Lenses, LensFitTest,
                         testing::Values(Lens{"Kestrel", ZFTABLE_KESTREL, 24},
                                         Lens{"Heron", ZFTABLE_HERON, 14},
                                         Lens{"Osprey", ZFTABLE_OSPREY, 14}),
                         [](const auto& lens) { return lens.param.name; });

}  // namespace
