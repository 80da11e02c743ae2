#ifndef KESTAN_TOOLS_KESTAN_MONITOR_REPORT_SVG_H
#define KESTAN_TOOLS_KESTAN_MONITOR_REPORT_SVG_H

#include <string>

// Writes the elements of an SVG picture. Lengths are pixels from the upper left corner;
// `style` is the class of an element in the picture's style sheet.
class Svg {
public:
    Svg(double width, const std::string& style_sheet);

    void line(const char* style, double x1, double y1, double x2, double y2);
    void rectangle(const char* style, double x, double y, double width, double height);

    // Writes UTF-8 text with its base line at `y`.
    void text(const char* style, double x, double y, const std::string& text);

    // Between begin_path and end_path, the other functions add dots and strokes to one
    // element, which keeps the picture small. dot() draws a dot, upright() a vertical
    // stroke, and step_to() continues a line.
    void begin_path(const char* style);
    void dot(double x, double y);
    void upright(double x, double y1, double y2);
    void step_to(double x, double y);
    void end_path();

    // Returns the whole picture, which is `height` high.
    [[nodiscard]] std::string finished(double height) const;

private:
    double width_;
    std::string body_;
    bool is_first_step_ = true;
};

#endif
