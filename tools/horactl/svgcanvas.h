#pragma once

#include <string>

namespace tools::horactl {

struct Box {
    double x;
    double y;
    double width;
    double height;
};

// How wide a text is likely to be, so large on the screen; rather too wide than too narrow.
double likelyWidth(const std::string& text, double fontSize);

// Elements of an SVG picture. How they look is said by their classes, in a style sheet. Texts may hold
// anything.
class SvgCanvas {
public:
    // `tip`: shown by a browser to whoever points at it.
    void box(const Box& box, const char* look, const std::string& tip = {});
    void verticalLine(double x, double top, double bottom, const char* look);
    // `x` is where the text begins, or ends, y its base line.
    void text(double x, double y, const char* look, const std::string& text);
    void textEndingAt(double x, double y, const char* look, const std::string& text);
    // Cut to the box; nothing where there is no room for a few letters.
    void textIn(const Box& box, const char* look, const std::string& text, double fontSize);
    void triangle(double x, double bottom, const char* look);
    void diamond(double x, double middle, const char* look, const std::string& tip);

    const std::string& elements() const { return elements_; }

private:
    void element(const std::string& open, const char* name, const std::string& content);

    std::string elements_;
};

} // namespace tools::horactl
