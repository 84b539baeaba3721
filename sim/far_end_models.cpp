#include "sim/far_end_models.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "sim/device.h"
#include "sim/hd_micom.h"
#include "sim/lens_micom.h"
#include "sim/ptz_head.h"
#include "sim/sd_module.h"

namespace sim {
namespace {

struct ModelRow {
  std::string_view model;
  FarEndKind kind;
};

constexpr std::array<ModelRow, 15> kModels = {{
    {"QB-210", FarEndKind::kSdModule},
    {"QB-220", FarEndKind::kSdModule},
    {"QB-310", FarEndKind::kHdModule},
    {"QB-320", FarEndKind::kHdModule},
    {"QB-330", FarEndKind::kHdModule},
    {"QB-340", FarEndKind::kHdModule},
    {"QB-350", FarEndKind::kHdModule},
    {"QB-410", FarEndKind::kLens},
    {"QB-420", FarEndKind::kLens},
    {"QB-430", FarEndKind::kLens},
    {"QB-440", FarEndKind::kLens},
    {"QB-450", FarEndKind::kLens},
    {"QB-460", FarEndKind::kLens},
    {"QB-470", FarEndKind::kLens},
    {"QB-480", FarEndKind::kLens},
}};

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
  const auto* row = std::ranges::find(kModels, model, &ModelRow::model);
  return row == kModels.end() ? FarEndKind::kPtzHead : row->kind;
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
