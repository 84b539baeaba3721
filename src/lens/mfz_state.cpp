#include "lens/mfz_state.h"

MfzState g_mfz = {};
