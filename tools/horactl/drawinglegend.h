#pragma once

#include "tools/horactl/svgcanvas.h"

namespace tools::horactl {

// What the looks of a week's drawing mean, in as many lines as it takes to fit into the box's width, from its
// top on. Gives the y at its end.
double drawLegend(SvgCanvas& canvas, const Box& box);

} // namespace tools::horactl
