#include "tools/horactl/drawinglegend.h"

namespace tools::horactl {

namespace {

struct Item {
    const char* look;
    const char* text;
    bool isMoment; // a diamond; else a box
};

constexpr Item items[] = {
    {"on", "WLAN on, by the plan named in it", false},
    {"off", "WLAN off", false},
    {"activating", "slot of a plan that activates", false},
    {"deactivating", "slot of one that deactivates", false},
    {"overlapEdge", "plans overlap", false},
    {"frameOpen", "time frame", false},
    {"frame", "closed by the user's time plan", false},
    {"start", "start of its service", true},
};

constexpr double itemSize = 11;
constexpr double sampleWidth = 22;
constexpr double sampleHeight = 11;
constexpr double beforeText = 6;
constexpr double between = 18;
constexpr double lineHeight = 18;

} // namespace

double drawLegend(SvgCanvas& canvas, const Box& box) {
    double x = box.x;
    double y = box.y;
    for (const Item& item : items) {
        const double needed = sampleWidth + beforeText + likelyWidth(item.text, itemSize);
        if (x > box.x && x + needed > box.x + box.width) {
            x = box.x;
            y += lineHeight;
        }
        if (item.isMoment)
            canvas.diamond(x + sampleWidth / 2, y + sampleHeight / 2, item.look, "");
        else
            canvas.box({x, y, sampleWidth, sampleHeight}, item.look);
        canvas.text(x + sampleWidth + beforeText, y + sampleHeight - 1, "dim", item.text);
        x += needed + between;
    }
    return y + lineHeight + beforeText;
}

} // namespace tools::horactl
