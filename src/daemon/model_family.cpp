#include "daemon/model_family.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace {

constexpr std::array kQb710Models = {"QB-710"};
constexpr std::array kSdModuleModels = {"QB-210", "QB-220"};
constexpr std::array kHdModuleModels = {"QB-310", "QB-320", "QB-330", "QB-340", "QB-350"};
constexpr std::array kMotorizedLensModels = {"QB-410", "QB-420", "QB-430", "QB-440",
                                             "QB-450", "QB-460", "QB-470", "QB-480"};

int IsOneOf(std::span<const char* const> names, const char* model) {
  return std::any_of(names.begin(), names.end(),
                     [model](const char* name) { return strcmp(name, model) == 0; })
             ? 1
             : 0;
}

}  // namespace

int IsSdModuleModel(const char* model) {
  return IsOneOf(kSdModuleModels, model);
}

int IsHdModuleModel(const char* model) {
  return IsOneOf(kHdModuleModels, model);
}

int IsMotorizedLensModel(const char* model) {
  return IsOneOf(kMotorizedLensModels, model);
}

int IsQb710Model(const char* model) {
  return IsOneOf(kQb710Models, model);
}
