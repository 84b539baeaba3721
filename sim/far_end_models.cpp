#include "sim/far_end_models.h"

#include <utility>

#include "sim/device.h"
#include "sim/hd_micom.h"
#include "sim/lens_micom.h"
#include "sim/ptz_head.h"
#include "sim/sd_module.h"
#include "tools/device_mode.h"

namespace sim {
namespace {

constexpr uint8_t kSdModelCode = 0x12;
// Time to write a packet into flash.
constexpr milliseconds kFlashTime{15};
// Offset of the object from the distance of the lens's curve, so that a search has a peak to find.
constexpr double kObjectOffset = 33;
// Position of the lens at power-on.
constexpr LensPose kLensAtStart = {.zoom = 700, .focus = 590, .iris = 40};

}  // namespace

std::unique_ptr<FarEnd> MakeFarEnd(const std::string& model, const PtyLine& line,
                                   Clock::time_point now) {
  switch (tools::ModeOfModel(model)) {
    case tools::MODE_SD:
      return std::make_unique<SdModule>(kSdModelCode, now);
    case tools::MODE_HD: {
      LoaderSetup loader;
      loader.flash_time = kFlashTime;
      return std::make_unique<HdMicom>(
          HdIdentity{}, std::move(loader), [&line] { return line.Settings(); }, now);
    }
    case tools::MODE_LENS:
      return std::make_unique<LensMicom>(now, kLensAtStart);
    case tools::MODE_RELAY:
      break;
  }
  return std::make_unique<PtzHead>(now);
}

std::unique_ptr<CameraDaemon> MakeCamera(const std::string& model, const FarEnd& far_end) {
  if (tools::ModeOfModel(model) != tools::MODE_LENS) return nullptr;
  auto camera = std::make_unique<CameraDaemon>(static_cast<const LensMicom*>(&far_end));
  camera->scene.offset = kObjectOffset;
  return camera;
}

void InstallModelFiles(const std::string& model) {
  if (tools::ModeOfModel(model) != tools::MODE_LENS) return;
  InstallLens({.zoom = kLensAtStart.zoom,
               .focus = kLensAtStart.focus,
               .sensor = "AR0230",
               .antiflicker = "false"});
}

}  // namespace sim
