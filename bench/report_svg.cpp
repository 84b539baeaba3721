#include "bench/report.h"
namespace bench { std::string SvgReport(const Results&) { return ""; } }
