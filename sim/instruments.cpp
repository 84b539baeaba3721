#include "sim/instruments.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "lens/tracking_tables.h"
#include "sim/far_end_models.h"
#include "sim/hd_micom.h"
#include "sim/lens_micom.h"
#include "sim/lens_optics.h"
#include "sim/sd_module.h"

namespace sim {
namespace {

constexpr double kPercent = 100;

std::string Format(const char* format, double value) {
  std::array<char, 32> text;
  snprintf(text.data(), text.size(), format, value);
  return text.data();
}

Gauge Reading(const char* label, const char* format, double value, double low, double high) {
  return {.label = label,
          .figure = Format(format, value),
          .share = std::clamp((value - low) / (high - low), 0.0, 1.0),
          .mark = std::nullopt};
}

Instruments ReadHead(const PtzHead& head) {
  const HeadPose& pose = head.Pose();
  Instruments read;
  read.gauges = {Reading("pan", "%.1f°", pose.pan, 0, 360),
                 Reading("tilt", "%+.1f°", pose.tilt, -90, 90),
                 Reading("zoom", "%.1f×", pose.zoom, 1, 20),
                 Reading("focus", "%.0f %%", pose.focus, 0, kPercent)};
  std::string presets = "presets";
  for (const auto& [number, preset] : head.Presets())
    presets.append(" ").append(std::to_string(number));
  read.notes = {head.Presets().empty() ? "no preset is set" : presets,
                std::to_string(head.FrameCount()) + " frames taken"};
  read.view = MapView{.pose = pose, .presets = head.Presets()};
  return read;
}

Gauge ZoomOf(const ModuleLens& lens) {
  return Reading("zoom", "%.1f×", lens.ZoomAt(), 1, kModuleZoomMax);
}

MenuView ViewOf(const ModuleMenu& menu) {
  MenuView view = {.is_open = menu.IsOpen(),
                   .cursor = menu.Cursor(),
                   .value_max = ModuleMenu::kValueMax,
                   .lines = {}};
  for (size_t i = 0; i < ModuleMenu::kLines; ++i) {
    const bool has_value = i + 1 < ModuleMenu::kLines;
    view.lines.push_back({.name = ModuleMenu::NameOf(i),
                          .value = has_value ? std::optional(menu.ValueOf(i)) : std::nullopt});
  }
  return view;
}

Instruments ReadSdModule(const SdModule& module) {
  Instruments read;
  read.gauges = {ZoomOf(module.Lens())};
  read.notes = {module.Menu().Describe()};
  read.view = ViewOf(module.Menu());
  return read;
}

Instruments ReadHdModule(const HdMicom& micom) {
  Instruments read;
  Gauge focus = Reading("focus", "%.0f %%", micom.Lens().FocusAt(), 0, kPercent);
  focus.mark = kModuleSharpFocus / kPercent;
  read.gauges = {ZoomOf(micom.Lens()), focus};
  read.notes = {micom.Describe()};
  if (micom.Loader() == nullptr) read.notes = {micom.Menu().Describe()};
  read.view = ViewOf(micom.Menu());
  return read;
}

CurveView CurveOf(const LensPose& pose, const LensBuild& build) {
  constexpr int kPoints = 200;
  CurveView view = {.focus = {},
                    .zoom_max = static_cast<double>(ZFTABLE_HERON.back().zoom),
                    .focus_max = static_cast<double>(build.focus_travel),
                    .zoom_at = static_cast<double>(pose.zoom),
                    .focus_at = static_cast<double>(pose.focus)};
  for (int i = 0; i < kPoints; ++i)
    view.focus.push_back(InFocus(view.zoom_max * i / (kPoints - 1)));
  return view;
}

std::string BrightnessOf(const Exposure& exposure) {
  if (exposure.deviation == 0) return "picture well exposed";
  return "picture " + std::to_string(std::abs(exposure.deviation)) +
         (exposure.deviation > 0 ? " % too dark" : " % too bright");
}

Instruments ReadLens(const LensMicom& lens, const CameraDaemon& camera) {
  const LensBuild build;
  const LensPose pose = lens.Pose();
  const double in_focus = InFocus(pose.zoom);
  const double sharpness = LensOptics::Sharpness(camera.scene, pose);
  const Exposure exposure = LensOptics::Expose(camera.scene, pose, camera.ExposureSetting());
  Instruments read;
  Gauge focus = Reading("focus", "%.0f", pose.focus, 0, build.focus_travel);
  focus.mark = in_focus / build.focus_travel;
  constexpr double kFarOff = 200;
  Gauge off_curve = Reading("off curve", "%+.0f", pose.focus - in_focus, -kFarOff, kFarOff);
  off_curve.mark = 0.5;
  // The exposure figure spans three decades: its logarithm moves evenly.
  constexpr double kShortest = 1024;
  constexpr double kLongest = 363329;
  Gauge level = Reading("exposure", "%.0f", std::log2(std::max(exposure.level, 1)),
                        std::log2(kShortest), std::log2(kLongest));
  level.figure = std::to_string(exposure.level);
  read.gauges = {
      Reading("zoom", "%.0f", pose.zoom, 0, build.zoom_travel),
      focus,
      off_curve,
      Reading("sharpness", "%.0f %%",
              kPercent * (sharpness - camera.scene.floor) / camera.scene.height, 0, kPercent),
      Reading("iris", "%.0f", pose.iris, 0, build.iris_travel),
      level};
  read.notes = {BrightnessOf(exposure)};
  read.view = CurveOf(pose, build);
  return read;
}

}  // namespace

Instruments ReadInstruments(const std::string& model, const FarEnd& far_end,
                            const CameraDaemon* camera) {
  switch (KindOfModel(model)) {
    case FarEndKind::kSdModule:
      return ReadSdModule(static_cast<const SdModule&>(far_end));
    case FarEndKind::kHdModule:
      return ReadHdModule(static_cast<const HdMicom&>(far_end));
    case FarEndKind::kLens:
      return ReadLens(static_cast<const LensMicom&>(far_end), *camera);
    case FarEndKind::kPtzHead:
      break;
  }
  return ReadHead(static_cast<const PtzHead&>(far_end));
}

}  // namespace sim
