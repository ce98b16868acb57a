#include "tools/horactl/svgcanvas.h"

#include "tools/horactl/markup.h"
#include "tools/text.h"
#include "velta/text.h"

#include <algorithm>

namespace tools::horactl {

namespace {

std::string boxAttributes(const Box& box) {
    return attribute("x", box.x) + attribute("y", box.y) + attribute("width", std::max(box.width, 0.0)) +
           attribute("height", std::max(box.height, 0.0));
}

std::string titled(const std::string& tip) {
    return tip.empty() ? "" : "<title>" + escaped(tip) + "</title>";
}

std::string point(double x, double y) {
    return shortNumber(x) + " " + shortNumber(y);
}

} // namespace

double likelyWidth(const std::string& text, double fontSize) {
    constexpr char32_t firstWide = 0x1100;
    double letters = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const velta::Character next = velta::firstCharacter(rest).value_or(velta::Character{U'?', 1});
        letters += next.code < firstWide ? 0.6 : 1.1;
        rest.remove_prefix(next.bytes);
    }
    return letters * fontSize;
}

void SvgCanvas::element(const std::string& open, const char* name, const std::string& content) {
    elements_ += "<" + open + (content.empty() ? "/>\n" : ">" + content + "</" + name + ">\n");
}

void SvgCanvas::box(const Box& box, const char* look, const std::string& tip) {
    element("rect" + attribute("class", look) + boxAttributes(box), "rect", titled(tip));
}

void SvgCanvas::verticalLine(double x, double top, double bottom, const char* look) {
    element("path" + attribute("class", look) +
                attribute("d", "M" + point(x, top) + "V" + shortNumber(bottom)),
            "path", "");
}

void SvgCanvas::text(double x, double y, const char* look, const std::string& text) {
    element("text" + attribute("class", look) + attribute("x", x) + attribute("y", y), "text", escaped(text));
}

void SvgCanvas::textEndingAt(double x, double y, const char* look, const std::string& text) {
    element("text" + attribute("class", look) + attribute("text-anchor", "end") + attribute("x", x) +
                attribute("y", y),
            "text", escaped(text));
}

// A picture in the picture cuts what is wider than it was likely to be.
void SvgCanvas::textIn(const Box& box, const char* look, const std::string& text, double fontSize) {
    constexpr double margin = 4;
    constexpr std::size_t fewLetters = 4;
    const double room = box.width - 2 * margin;
    std::size_t letters = width(text);
    while (letters > 0 && likelyWidth(cut(text, letters), fontSize) > room)
        --letters;
    if (letters == 0 || (letters < fewLetters && letters < width(text)))
        return;
    const double baseLine = box.height / 2 + fontSize * 0.35;
    const std::string inner = "<text" + attribute("class", look) + attribute("x", margin) +
                              attribute("y", baseLine) + ">" + escaped(cut(text, letters)) + "</text>";
    element("svg" + attribute("class", "clip") + boxAttributes(box), "svg", inner);
}

void SvgCanvas::triangle(double x, double bottom, const char* look) {
    constexpr double half = 4;
    constexpr double height = 7;
    element("path" + attribute("class", look) +
                attribute("d", "M" + point(x, bottom) + "L" + point(x - half, bottom - height) + "H" +
                                   shortNumber(x + half) + "Z"),
            "path", "");
}

void SvgCanvas::diamond(double x, double middle, const char* look, const std::string& tip) {
    constexpr double half = 5;
    element("path" + attribute("class", look) +
                attribute("d", "M" + point(x, middle - half) + "L" + point(x + half, middle) + "L" +
                                   point(x, middle + half) + "L" + point(x - half, middle) + "Z"),
            "path", titled(tip));
}

} // namespace tools::horactl
