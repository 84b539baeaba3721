#include "bench/measure_lens.h"

#include <algorithm>

#include "bench/lens_measure.h"
#include "bench/statistics.h"

namespace bench {
namespace {

constexpr char kSection[] = "Lens mode, simulated lens";
constexpr int kWorlds = 8;
constexpr double kDriveSeconds = 3;
constexpr double kPercent = 100;

class Lens {
 public:
  Lens(const char* subject, Results* results) : subject_(subject), results_(results) {}

  void Add(const char* id, const std::string& label, const char* unit, double value,
           Better better = Better::kLess) {
    results_->Add(FigureOf(id, label, unit, better), subject_, value);
  }
  void Refuse(const char* id, const std::string& label, const char* unit) {
    results_->AddReason(FigureOf(id, label, unit, Better::kLess), subject_, "its device failed");
  }

 private:
  static Figure FigureOf(const char* id, const std::string& label, const char* unit,
                         Better better) {
    return {.id = std::string("lens.") + id,
            .section = kSection,
            .label = label,
            .unit = unit,
            .better = better};
  }

  const char* subject_;
  Results* results_;
};

void AddSearches(int searches, Lens* lens) {
  bool good = true;
  const auto outcomes = RunSearches(searches, std::min(kWorlds, searches), &good);
  if (!good || outcomes.empty()) {
    lens->Refuse("search.ratio", "focus search, time by the sum of its waits", "ratio");
    return;
  }
  std::vector<double> ratios;
  std::vector<double> beyond;
  double found = 0;
  for (const SearchOutcome& outcome : outcomes) {
    ratios.push_back(outcome.verdict.elapsed_ms / outcome.verdict.waits_ms);
    beyond.push_back(outcome.verdict.elapsed_ms - outcome.verdict.waits_ms);
    found += outcome.found ? 1 : 0;
  }
  lens->Add("search.ratio", "focus search, time by the sum of its waits", "ratio", Median(ratios));
  lens->Add("search.beyond", "focus search, time beyond its waits", "ms", Median(beyond));
  lens->Add("search.found", "focus search, peak found", "%",
            kPercent * found / static_cast<double>(outcomes.size()), Better::kMore);
}

void AddDrive(Lens* lens) {
  const DriveOutcome drive = RunDrive(kDriveSeconds);
  if (drive.beyond_ms.empty()) {
    lens->Refuse("move.ratio", "move of 10 steps, time by its wait", "ratio");
    return;
  }
  const double beyond = Median(drive.beyond_ms);
  lens->Add("move.ratio", "move of 10 steps, time by its wait", "ratio",
            (drive.stated_ms + beyond) / drive.stated_ms);
  lens->Add("move.beyond", "move of 10 steps, time beyond its wait", "ms", beyond);
}

void AddRests(int seconds, Lens* lens) {
  for (const LensRest& rest : RunLensRests(seconds)) {
    const std::string label = std::string("idle processor, ") + rest.legend + ", ";
    const std::string id = std::string("idle.") + rest.id;
    if (rest.loop < 0) {
      lens->Refuse((id + ".loop").c_str(), label + "loop", "%");
      continue;
    }
    lens->Add((id + ".loop").c_str(), label + "loop", "%", rest.loop);
    lens->Add((id + ".worker").c_str(), label + "worker", "%", rest.worker);
  }
}

}  // namespace

void MeasureLens(const char* subject, int searches, int idle_seconds, Results* results) {
  Lens lens(subject, results);
  AddSearches(searches, &lens);
  AddDrive(&lens);
  AddRests(idle_seconds, &lens);
}

}  // namespace bench
