// The families of device models. Names must match exactly, including case.
#pragma once

// Return 1 if `model` (NUL-terminated) belongs to the family, else 0.
int IsSdModuleModel(const char* model);
int IsHdModuleModel(const char* model);
int IsMotorizedLensModel(const char* model);
int IsQb710Model(const char* model);
