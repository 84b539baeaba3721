// Which device models belong together. Names are compared whole and case-sensitively.
#pragma once

// Each returns 1 when `model` (NUL-terminated) is of the family, else 0.
int IsSdModuleModel(const char* model);
int IsHdModuleModel(const char* model);
int IsMotorizedLensModel(const char* model);
int IsQb710Model(const char* model);
