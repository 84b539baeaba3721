// What the image sensor sees through a motorized lens: how sharp and how bright the picture is.
//
// Sharpness falls off with the distance of the focus motor from the position that is in focus at
// the present zoom. Brightness follows the scene's light, the iris and the exposure. Pure numbers;
// the noise comes from a generator with a seed of its own.
#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "lens/tracking_tables.h"
#include "sim/lens_micom.h"

namespace sim {

// The scene in front of the lens, and which lens it is.
struct Scene {
  std::span<const ZfEntry> curve = ZFTABLE_HERON;

  // Sharpness. A flat scene has height 0.
  double offset = 0;               // focus steps by which its distance shifts the lens's curve
  double width = 60;               // focus steps at which the measure has fallen to half its height
  double height = 20000;           // measure at the peak, above the floor
  double floor = 1500;             // measure of an image without detail
  double noise = 0;                // largest deviation of a single measure
  std::vector<double> more_peaks;  // further peaks of the same height, steps from the first
  // A measure of this or more reads as this: the peak becomes a plateau.
  double ceiling = 65534;

  // Brightness: light that reaches the lens; 1 needs an exposure of 1024 with the iris open.
  double light = 1;
};

// The exposure figures of the camera daemon's automatic exposure.
struct Exposure {
  int32_t level;      // exposure in use: 1024 the shortest, up to the setting in force
  int32_t deviation;  // per cent that the picture is too dark (positive) or too bright
};

// The share of the light that the iris lets through: the same factor for each step.
double IrisTransmission(int iris, int travel = 96);

// The focus position that is in focus at a zoom position, for an object at the distance for which
// the lens's curve is made.
double InFocus(double zoom, std::span<const ZfEntry> curve = ZFTABLE_HERON);

class LensOptics {
 public:
  explicit LensOptics(uint32_t seed = 1) : noise_(seed) {}

  // The measure without noise.
  static double Sharpness(const Scene& scene, const LensPose& pose);

  // One measure, 0 to 65534.
  uint16_t Measure(const Scene& scene, const LensPose& pose);

  // What the automatic exposure makes of the scene when it may expose up to `setting`.
  static Exposure Expose(const Scene& scene, const LensPose& pose, int32_t setting);

 private:
  std::mt19937 noise_;
};

}  // namespace sim
