#include "sim/lens_optics.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr double kMeasureMax = 65534;
constexpr int32_t kExposureShortest = 1024;

// 1 at the peak, one half at `width` steps from it.
double Bell(double distance, double width) {
  return std::exp2(-(distance / width) * (distance / width));
}

}  // namespace

double IrisTransmission(int iris, int travel) {
  constexpr double kStepsOfAStop = 16;
  return std::exp2((iris - travel) / kStepsOfAStop);
}

double InFocus(double zoom, std::span<const ZfEntry> curve) {
  const double last = static_cast<double>(curve.size()) - 1;
  const double place = std::clamp(zoom / TRACKING_SPACING, 0.0, last);
  const auto lower = std::min(static_cast<size_t>(place), curve.size() - 2);
  const double rise = curve[lower + 1].focus - curve[lower].focus;
  return curve[lower].focus + (place - static_cast<double>(lower)) * rise;
}

double LensOptics::Sharpness(const Scene& scene, const LensPose& pose) {
  const double distance = pose.focus - (InFocus(pose.zoom, scene.curve) + scene.offset);
  double share = Bell(distance, scene.width);
  for (const double peak : scene.more_peaks)
    share = std::max(share, Bell(distance - peak, scene.width));
  return std::min(scene.floor + scene.height * share, scene.ceiling);
}

uint16_t LensOptics::Measure(const Scene& scene, const LensPose& pose) {
  std::uniform_real_distribution<double> noise(-1, 1);
  const double value = Sharpness(scene, pose) + scene.noise * noise(noise_);
  return static_cast<uint16_t>(std::clamp(std::round(value), 0.0, kMeasureMax));
}

Exposure LensOptics::Expose(const Scene& scene, const LensPose& pose, int32_t setting) {
  const double light = scene.light * IrisTransmission(pose.iris);
  const double longest = std::max(setting, kExposureShortest);
  const double level = std::clamp(kExposureShortest / light, double{kExposureShortest}, longest);
  const double brightness = light * level / kExposureShortest;
  const double deviation = std::clamp(100 * (1 - brightness), -100.0, 100.0);
  return {.level = static_cast<int32_t>(std::lround(level)),
          .deviation = static_cast<int32_t>(std::lround(deviation))};
}

}  // namespace sim
