#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_SVG_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_SVG_H

#include <fmt/format.h>

#include <string>

// Writes the elements of an SVG picture. Lengths are pixels from the upper left corner;
// `style` is the class of an element in the picture's style sheet.
class Svg {
public:
    void line(const char* style, double x1, double y1, double x2, double y2) {
        body_ += fmt::format(
            "<line class=\"{}\" x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" "
            "y2=\"{:.1f}\"/>\n",
            style, x1, y1, x2, y2);
    }

    void rectangle(const char* style, double x, double y, double width, double height) {
        body_ += fmt::format(
            "<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" "
            "height=\"{:.1f}\"/>\n",
            style, x, y, width, height);
    }

    // Writes UTF-8 text with its base line at `y`.
    void text(const char* style, double x, double y, const std::string& text) {
        body_ += fmt::format("<text class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\">{}</text>\n",
                             style, x, y, escaped(text));
    }

    // Draws the steps of `path`, in SVG's language. Many in one element keep the picture
    // small.
    void path(const char* style, const std::string& path) {
        body_ += fmt::format("<path class=\"{}\" d=\"{}\"/>\n", style, path);
    }

    // Returns the whole picture.
    [[nodiscard]] std::string finished(double width, double height,
                                       const char* style_sheet) const {
        return fmt::format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
            "viewBox=\"0 0 {0} {1}\">\n"
            "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
            "<style>{2}</style>\n{3}</svg>\n",
            width, height, style_sheet, body_);
    }

private:
    static std::string escaped(const std::string& text) {
        std::string xml;
        for (const char byte : text) {
            if (byte == '<')
                xml += "&lt;";
            else if (byte == '&')
                xml += "&amp;";
            else
                xml += byte;
        }
        return xml;
    }

    std::string body_;
};

#endif
