// Grows an SVG text.
#pragma once

#include <cstdarg>
#include <string>

#include "tools/format.h"

namespace bench {

class Svg {
 public:
  // A white picture whose texts have this size and color.
  Svg(double width, double height, double font_size, const char* ink) {
    Add("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%g\" height=\"%g\" "
        "viewBox=\"0 0 %g %g\" font-family=\"Helvetica, Arial, sans-serif\" font-size=\"%g\" "
        "fill=\"%s\">\n<rect width=\"100%%\" height=\"100%%\" fill=\"white\"/>\n",
        width, height, width, height, font_size, ink);
  }

  // Appends as printf prints.
  [[gnu::format(printf, 2, 3)]] void Add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    text_ += tools::FormatList(format, arguments);
    va_end(arguments);
  }

  void Line(double x1, double y1, double x2, double y2, const char* color, const char* more = "") {
    Add("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" %s/>\n", x1, y1, x2,
        y2, color, more);
  }

  // `anchor` is "start", "middle" or "end"; `more` are further attributes.
  void Text(double x, double y, const char* anchor, const std::string& text,
            const char* more = "") {
    Add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\" %s>%s</text>\n", x, y, anchor, more,
        text.c_str());
  }

  std::string Finish() { return text_ + "</svg>\n"; }

 private:
  std::string text_;
};

}  // namespace bench
