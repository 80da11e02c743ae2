#include "tools/kestan-monitor/report/svg.h"

#include <fmt/format.h>

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
    body_ += fmt::format(
        "<line class=\"{}\" x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\"/>\n",
        style, x1, y1, x2, y2);
}

void Svg::rectangle(const char* style, double x, double y, double width, double height) {
    body_ += fmt::format(
        "<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" "
        "height=\"{:.1f}\"/>\n",
        style, x, y, width, height);
}

void Svg::text(const char* style, double x, double y, const std::string& text) {
    body_ += fmt::format("<text class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\">{}</text>\n",
                         style, x, y, escaped(text));
}

void Svg::begin_path(const char* style) {
    body_ += fmt::format("<path class=\"{}\" d=\"", style);
    is_first_step_ = true;
}

// A stroke of length 0 shows only its round ends: a dot.
void Svg::dot(double x, double y) {
    body_ += fmt::format("M{:.1f} {:.1f}h0", x, y);
}

void Svg::upright(double x, double y1, double y2) {
    body_ += fmt::format("M{:.1f} {:.1f}V{:.1f}", x, y1, y2);
}

void Svg::step_to(double x, double y) {
    body_ += is_first_step_ ? fmt::format("M{:.1f} {:.1f}", x, y)
                            : fmt::format("H{:.1f}V{:.1f}", x, y);
    is_first_step_ = false;
}

void Svg::end_path() {
    body_ += "\"/>\n";
}

std::string Svg::finished(double height) const {
    return fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
        "viewBox=\"0 0 {0} {1}\">\n"
        "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n{2}</svg>\n",
        width_, height, body_);
}
