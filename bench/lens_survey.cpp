// lens_survey: records what a calibration of a lens records on a device: the output of the real
// daemon while it searches the focus of a simulated lens at every entry of the lens's curve.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>

#include "sim/device.h"
#include "sim/lens_survey.h"

namespace {

const std::map<std::string, std::span<const ZfEntry>> kLenses = {
    {"kestrel", ZFTABLE_KESTREL}, {"heron", ZFTABLE_HERON}, {"osprey", ZFTABLE_OSPREY}};

int Run(const sim::LensSurvey& survey, const std::string& path) {
  const auto start = std::chrono::steady_clock::now();
  const sim::SurveyResult result = sim::RunSurvey(survey);
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  sim::WriteTextFile(path, result.log);
  printf("%d searches, %d of them disturbed, in %.1f s: %s\n", result.searches, result.disturbed,
         seconds, path.c_str());
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  sim::LensSurvey survey;
  survey.daemon = RS232D_PATH;
  survey.searches = 8;
  std::string lens;
  std::string path;
  CLI::App app{"Records focus searches over the whole zoom range of a simulated lens."};
  app.add_option("LENS", lens, "whose curve it has: kestrel, heron or osprey")
      ->required()
      ->check(CLI::IsMember(kLenses, CLI::ignore_case));
  app.add_option("LOG", path, "where the daemon's output goes")->required();
  app.add_option("--searches", survey.searches, "at each entry of the curve")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  app.add_option("--worlds", survey.worlds, "devices at once")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  app.add_option("--noise", survey.noise, "largest error of a focus measure, share of the peak")
      ->check(CLI::Range(0.0, 1.0))
      ->capture_default_str();
  app.add_option("--disturbed", survey.disturbed, "share of the searches that are disturbed")
      ->check(CLI::Range(0.0, 1.0))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    survey.curve = kLenses.at(CLI::detail::to_lower(lens));
    return Run(survey, path);
  } catch (const std::exception& error) {
    fprintf(stderr, "lens_survey: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
