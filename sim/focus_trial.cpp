#include "sim/focus_trial.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace sim {
namespace {

// What the search waits between two of its steps, milliseconds.
constexpr double kCoarseMs = 97;
constexpr double kFineMs = 19;
constexpr double kFinestMs = 9;

// The search backs off from the best position by four fine steps. A peak nearer to the zero end
// would send the lens into it.
constexpr double kLowestPeak = 50;

constexpr int kCoarse = 50;
constexpr int kFine = 10;
constexpr int kFinest = 5;

double Between(double low, double high, std::mt19937* random) {
  return std::uniform_real_distribution<double>(low, high)(*random);
}

void PutPeakAt(double focus, const LensPose& start, Scene* scene) {
  scene->offset = focus - InFocus(start.zoom);
}

int CountMoves(std::span<const LensFrame> frames, int steps) {
  return static_cast<int>(std::count_if(frames.begin(), frames.end(), [steps](const LensFrame& f) {
    const auto value = static_cast<uint16_t>(f.bytes[I2M_HIGH_AT] << 8 | f.bytes[I2M_LOW_AT]);
    return f.bytes[I2M_ADDRESS_AT] == I2M_ADDR_FOCUS_MOVE && -static_cast<int16_t>(value) == steps;
  }));
}

// Distance from `found` to the nearest of the sharpest positions between two ends.
int ErrorOf(const Scene& scene, int lowest, int highest, const LensPose& found) {
  double best = -1;
  int error = 0;
  for (int focus = lowest; focus <= highest; ++focus) {
    const double sharpness = LensOptics::Sharpness(scene, {found.zoom, focus, found.iris});
    const int distance = std::abs(focus - found.focus);
    if (sharpness > best + 0.5) {
      best = sharpness;
      error = distance;
    } else if (sharpness > best - 0.5) {
      error = std::min(error, distance);
    }
  }
  return error;
}

}  // namespace

const char* NameOf(TrialKind kind) {
  constexpr std::array<const char*, kTrialKinds> kNames = {"sharp", "broad",   "noisy", "plateau",
                                                           "twins", "outside", "flat"};
  return kNames[static_cast<size_t>(kind)];
}

FocusTrial MakeFocusTrial(int index, const LensPose& start, int home, int half_width,
                          std::mt19937* random) {
  const auto kind = static_cast<TrialKind>(index % kTrialKinds);
  FocusTrial trial = {.kind = kind, .half_width = half_width, .scene = {}};
  Scene& scene = trial.scene;
  const double reach = half_width - 20;
  const double around_home = home + Between(-reach, reach, random);
  const double lowest = std::max(start.focus - reach, kLowestPeak);
  PutPeakAt(std::clamp(around_home, lowest, start.focus + reach), start, &scene);
  scene.width = Between(25, 60, random);
  scene.height = Between(8000, 40000, random);
  switch (kind) {
    case TrialKind::kSharp:
      break;
    case TrialKind::kBroad:
      scene.width = Between(100, 200, random);
      break;
    case TrialKind::kNoisy:
      scene.noise = scene.height * Between(0.002, 0.01, random);
      break;
    case TrialKind::kPlateau:
      scene.ceiling = scene.floor + scene.height * Between(0.8, 0.95, random);
      break;
    case TrialKind::kTwins:
      // Whole fine steps apart, so that the search meets them alike.
      scene.width = 25;
      scene.more_peaks = {-kFine * std::round(Between(6, 10, random)),
                          kFine * std::round(Between(6, 10, random))};
      break;
    case TrialKind::kOutside: {
      // Near enough for the slope to be seen from the interval.
      const double beyond = half_width + Between(20, 60, random);
      const bool above = start.focus < home || start.focus - half_width < kLowestPeak;
      PutPeakAt(start.focus + (above ? beyond : -beyond), start, &scene);
      break;
    }
    case TrialKind::kFlat:
      scene.height = 0;
      break;
  }
  return trial;
}

bool FocusVerdict::Found(const FocusTrial& trial) const {
  return error <= (trial.scene.noise > 0 ? kFine : kFinest);
}

FocusVerdict JudgeFocusSearch(const FocusTrial& trial, std::span<const LensFrame> frames,
                              std::span<const FocusReading> readings, const LensPose& found) {
  const std::span<const FocusReading> scan = readings.first(readings.size() - 1);
  // The last of the largest.
  const auto best = std::max_element(
      scan.begin(), scan.end(),
      [](const FocusReading& a, const FocusReading& b) { return a.value <= b.value; });
  const int coarse = CountMoves(frames, -kCoarse);
  const int back = CountMoves(frames, -kFine);
  const int finest = CountMoves(frames, kFinest);
  const double waits = kCoarseMs * (coarse + 1) + kFineMs * static_cast<double>(scan.size()) +
                       kFineMs * (back + 1) + kFinestMs * (finest + 1);
  // A search with a way down is first seen at its first move, else at its first measure.
  const auto begin = coarse > 0 ? frames.front().earliest : readings.front().time;
  const double unseen = coarse > 0 ? kCoarseMs : kCoarseMs + kFineMs;
  return {
      .rule_kept = best->pose.focus == found.focus,
      .always_still = std::none_of(readings.begin(), readings.end(),
                                   [](const FocusReading& r) { return r.moving; }),
      .measures = static_cast<int>(readings.size()),
      .error = ErrorOf(trial.scene, scan.front().pose.focus, scan.back().pose.focus, found),
      .elapsed_ms = std::chrono::duration<double, std::milli>(readings.back().time - begin).count(),
      .waits_ms = waits - unseen};
}

}  // namespace sim
