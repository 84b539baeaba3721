// Where the lens really is, against where the daemon says that it is.
#include <string>

#include "sim/leftovers.h"
#include "sim/lens_micom.h"
#include "tests/soak/session.h"

namespace soak {
namespace {

// Of the lens that the model has.
constexpr int kZoomMax = 1350;
constexpr int kFocusMax = 2609;

constexpr char kOpened[] = "+PIRIS_STEP_SINGLE (open)";
constexpr char kSearchEnded[] = "TRACE\t";

std::string Words(int zoom, int focus) {
  return "zoom " + std::to_string(zoom) + ", focus " + std::to_string(focus);
}

}  // namespace

// Ends whatever moves, has the positions saved, and compares.
void Session::RestLens() {
  if (is_lost_) return;
  Settle();
  const auto* micom = static_cast<const sim::LensMicom*>(traffic_.FarEnd());
  const size_t opened = CountInOutput(kOpened);
  // Moving the focus ends a search; the step of the iris comes behind all of it.
  for (const CameraControl& control :
       {sim::Control(CAMERA_CODE_ZOOM), sim::Control(CAMERA_CODE_FOCUS, 1),
        sim::Control(CAMERA_CODE_FOCUS), sim::Control(CAMERA_CODE_IRIS_STEP, 1)}) {
    traffic_.SendControl(control);
  }
  if (!AwaitInOutput(kOpened, opened + 1, Patience()) ||
      !Await([&] { return !micom->IsMoving(); }, Patience())) {
    report_.Violation("lens", "rest", micom->Describe());
    return;
  }
  const sim::LensPose pose = micom->Pose();
  const auto saved = sim::ReadWholePositions();
  const bool is_within = pose.zoom >= 0 && pose.zoom <= kZoomMax && pose.focus <= kFocusMax;
  const bool is_there = saved.has_value() && *saved == std::pair(pose.zoom, pose.focus);
  if (is_there && is_within) {
    ++report_.Count().lens_checks;
  } else {
    report_.Violation("lens",
                      saved.has_value() ? Words(saved->first, saved->second) : "a whole file",
                      Words(pose.zoom, pose.focus) + " of " + Words(kZoomMax, kFocusMax));
  }
  if (!is_there) FindLens();
  traffic_.SetFlowing(true);
}

// Has the daemon find the ends of the lens, and its focus, anew.
void Session::FindLens() {
  const size_t ended = CountInOutput(kSearchEnded);
  traffic_.SendControl(sim::Control(CAMERA_CODE_ASSIST));
  if (!AwaitInOutput(kSearchEnded, ended + 1, Patience())) {
    report_.Violation("lens", "a search", daemon_->Output());
  }
}

// The daemon has taken over what the one before it stored. One that was killed did not store where
// it was, and finds the lens's ends anew.
void Session::CheckLensRestored(bool was_killed) {
  const auto saved = sim::ReadWholePositions();
  if (saved.has_value()) {
    const std::string restored = "restored posZoom=" + std::to_string(saved->first) +
                                 ", posFocus=" + std::to_string(saved->second);
    if (CountInOutput(restored) == 0) report_.Violation("lens", restored, daemon_->Output());
  }
  if (was_killed) FindLens();
}

}  // namespace soak
