#include "tools/horactl/weeksvg.h"

#include "tools/horactl/weekdrawing.h"

namespace tools::horactl {

std::string svgOf(const WeekPicture& picture) {
    std::string drawing = drawingOf(picture, wideLayout);
    const std::size_t behindTag = drawing.find(">\n") + 2;
    drawing.insert(behindTag, "<style>\n" + std::string(drawingStyle) + "</style>\n");
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + drawing;
}

} // namespace tools::horactl
