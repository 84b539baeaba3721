// The picture through a motorized lens: its sharpness and brightness.
//
// Sharpness falls with the distance between the focus motor and the position in focus at the
// current zoom. Brightness depends on the light of the scene, the iris and the exposure. The noise
// comes from a seeded generator, the only state.
#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "lens/tracking_tables.h"
#include "sim/lens_micom.h"

namespace sim {

// The scene in front of the lens, and the curve of the lens.
struct Scene {
  std::span<const ZfEntry> curve = ZFTABLE_HERON;

  // Sharpness. A flat scene has height 0.
  double offset = 0;               // focus steps that the distance of the scene adds to the curve
  double width = 60;               // focus steps from the peak to half its height
  double height = 20000;           // measure at the peak, above the floor
  double floor = 1500;             // measure of a picture without detail
  double noise = 0;                // maximum deviation of a measure
  std::vector<double> more_peaks;  // equal peaks, in steps from the first
  // Upper limit of a measure, which turns the peak into a plateau.
  double ceiling = 65534;

  // Brightness: light at the lens. At 1, an open iris needs an exposure of 1024.
  double light = 1;
};

// The answer of the camera daemon's automatic exposure.
struct Exposure {
  int32_t level;      // current exposure: 1024 (shortest) to the current setting
  int32_t deviation;  // percent too dark (positive) or too bright
};

// The share of the light that passes the iris; each step changes it by the same factor.
double IrisTransmission(int iris, int travel = 96);

// The focus position that is sharp at a zoom position, for an object at the distance of the curve.
double InFocus(double zoom, std::span<const ZfEntry> curve = ZFTABLE_HERON);

class LensOptics {
 public:
  explicit LensOptics(uint32_t seed = 1) : noise_(seed) {}

  // The measure without noise.
  static double Sharpness(const Scene& scene, const LensPose& pose);

  // One measure, 0 to 65534.
  uint16_t Measure(const Scene& scene, const LensPose& pose);

  // The result of the automatic exposure, with `setting` as its maximum.
  static Exposure Expose(const Scene& scene, const LensPose& pose, int32_t setting);

 private:
  std::mt19937 noise_;
};

}  // namespace sim
