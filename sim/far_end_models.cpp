#include "sim/far_end_models.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "sim/hd_micom.h"
#include "sim/ptz_head.h"
#include "sim/sd_module.h"

namespace sim {
namespace {

struct ModelRow {
  std::string_view model;
  FarEndKind kind;
};

constexpr std::array<ModelRow, 7> kModels = {{
    {"QB-210", FarEndKind::kSdModule},
    {"QB-220", FarEndKind::kSdModule},
    {"QB-310", FarEndKind::kHdModule},
    {"QB-320", FarEndKind::kHdModule},
    {"QB-330", FarEndKind::kHdModule},
    {"QB-340", FarEndKind::kHdModule},
    {"QB-350", FarEndKind::kHdModule},
}};

// The model code of the SD module.
constexpr uint8_t kSdModelCode = 0x12;
// Writing a packet into flash.
constexpr milliseconds kFlashTime{15};

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
    case FarEndKind::kPtzHead:
      break;
  }
  return std::make_unique<PtzHead>(now);
}

}  // namespace sim
