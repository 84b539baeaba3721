#include "sim/far_end_models.h"

#include <utility>

#include "daemon/model_family.h"
#include "sim/device.h"
#include "sim/hd_micom.h"
#include "sim/lens_micom.h"
#include "sim/ptz_head.h"
#include "sim/sd_module.h"

namespace sim {
namespace {

// The model code of the SD module.
constexpr uint8_t kSdModelCode = 0x12;
// Writing a packet into flash.
constexpr milliseconds kFlashTime{15};
// The object is nearer than the lens's curve takes it to be: a search has something to find.
constexpr double kObjectOffset = 33;
// Where the lens of a device stands when it is switched on.
constexpr LensPose kLensAtStart = {.zoom = 700, .focus = 590, .iris = 40};

}  // namespace

FarEndKind KindOfModel(const std::string& model) {
  if (IsSdModuleModel(model.c_str()) != 0) return FarEndKind::kSdModule;
  if (IsHdModuleModel(model.c_str()) != 0) return FarEndKind::kHdModule;
  return IsMotorizedLensModel(model.c_str()) != 0 ? FarEndKind::kLens : FarEndKind::kPtzHead;
}

std::unique_ptr<FarEnd> MakeFarEnd(const std::string& model, const PtyLine& line,
                                   Clock::time_point now) {
  switch (KindOfModel(model)) {
    case FarEndKind::kSdModule:
      return std::make_unique<SdModule>(kSdModelCode, now);
    case FarEndKind::kHdModule: {
      LoaderSetup loader;
      loader.flash_time = kFlashTime;
      return std::make_unique<HdMicom>(
          HdIdentity{}, std::move(loader), [&line] { return line.Settings(); }, now);
    }
    case FarEndKind::kLens:
      return std::make_unique<LensMicom>(now, kLensAtStart);
    case FarEndKind::kPtzHead:
      break;
  }
  return std::make_unique<PtzHead>(now);
}

std::unique_ptr<CameraDaemon> MakeCamera(const std::string& model, const FarEnd& far_end) {
  if (KindOfModel(model) != FarEndKind::kLens) return nullptr;
  auto camera = std::make_unique<CameraDaemon>(static_cast<const LensMicom*>(&far_end));
  camera->scene.offset = kObjectOffset;
  return camera;
}

void InstallModelFiles(const std::string& model) {
  if (KindOfModel(model) != FarEndKind::kLens) return;
  InstallLens({.zoom = kLensAtStart.zoom,
               .focus = kLensAtStart.focus,
               .sensor = "AR0230",
               .antiflicker = "false"});
}

}  // namespace sim
