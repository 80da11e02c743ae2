#include "tools/kestan-monitor/report/svg.h"

#include "tools/kestan-monitor/measure/text_format.h"

namespace {

std::string escaped(const std::string& text) {
    std::string xml;
    for (const char byte : text) {
        switch (byte) {
            case '<':
                xml += "&lt;";
                break;
            case '&':
                xml += "&amp;";
                break;
            default:
                xml += byte;
        }
    }
    return xml;
}

}  // namespace

Svg::Svg(double width, const std::string& style_sheet)
    : width_(width), body_("<style>" + style_sheet + "</style>\n") {}

void Svg::line(const char* style, double x1, double y1, double x2, double y2) {
    body_ +=
        format("<line class=\"%s\" x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\"/>\n",
               style, x1, y1, x2, y2);
}

void Svg::rectangle(const char* style, double x, double y, double width, double height) {
    body_ += format(
        "<rect class=\"%s\" x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/>\n",
        style, x, y, width, height);
}

void Svg::text(const char* style, double x, double y, const std::string& text) {
    body_ += format(R"(<text class="%s" x="%.1f" y="%.1f">)", style, x, y) +
             escaped(text) + "</text>\n";
}

void Svg::begin_path(const char* style) {
    body_ += format(R"(<path class="%s" d=")", style);
    is_first_step_ = true;
}

// A stroke of length 0 shows only its round ends: a dot.
void Svg::dot(double x, double y) {
    body_ += format("M%.1f %.1fh0", x, y);
}

void Svg::upright(double x, double y1, double y2) {
    body_ += format("M%.1f %.1fV%.1f", x, y1, y2);
}

void Svg::step_to(double x, double y) {
    body_ += is_first_step_ ? format("M%.1f %.1f", x, y) : format("H%.1fV%.1f", x, y);
    is_first_step_ = false;
}

void Svg::end_path() {
    body_ += "\"/>\n";
}

std::string Svg::finished(double height) const {
    return format(
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
               "viewBox=\"0 0 %.0f %.0f\">\n",
               width_, height, width_, height) +
           "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n" + body_ + "</svg>\n";
}
