#include "tools/horactl/weekdrawing.h"

namespace tools::horactl {

// Plain rules, since not everybody who shows SVG knows variables. What means something else differs in
// lightness or in its pattern too, not in its colour alone.
const char* const drawingStyle =
    R"(.week text { font: 11px system-ui, "Helvetica Neue", Arial, sans-serif; fill: #1f2937; unicode-bidi: isolate; }
.week .clip { overflow: hidden; }
.week .page { fill: #ffffff; }
.week .title { font-size: 16px; font-weight: 600; }
.week .date { font-size: 13px; font-weight: 600; }
.week .dim { fill: #4b5563; }
.week .grid { stroke: #d1d5db; stroke-width: 1; fill: none; }
.week .border { stroke: #9ca3af; stroke-width: 1; fill: none; }
.week .on { fill: #0f766e; stroke: #ffffff; stroke-width: .7; }
.week .onName { fill: #ffffff; font-weight: 600; }
.week .off { fill: #e5e7eb; stroke: #9ca3af; stroke-width: .7; }
.week .offName { fill: #1f2937; }
.week .activating { fill: #bfdbfe; stroke: #1d4ed8; stroke-width: 1; }
.week .activatingName { fill: #1e3a8a; font-size: 10px; }
.week .deactivating { fill: #fef3c7; stroke: #b45309; stroke-width: 1; stroke-dasharray: 4 2; }
.week .deactivatingName { fill: #78350f; font-size: 10px; }
.week .overlap { fill: #be185d; fill-opacity: .2; }
.week .overlapEdge { fill: #be185d; }
.week .frame { fill: #ffffff; stroke: #7c3aed; stroke-width: 1; stroke-dasharray: 2 2; }
.week .frameOpen { fill: #ddd6fe; stroke: #7c3aed; stroke-width: 1; }
.week .frameName { fill: #4c1d95; font-size: 10px; }
.week .start { fill: #5b21b6; stroke: #ffffff; stroke-width: 1; }
.week .past { fill: #ffffff; fill-opacity: .38; }
.week .now { stroke: #111827; stroke-width: 2; fill: #111827; }
.week .nowName { fill: #111827; font-weight: 700; }
.week .reboot { stroke: #b91c1c; stroke-width: 1.5; fill: #b91c1c; }
.week .rebootName { fill: #b91c1c; font-weight: 600; }
.week .clock { stroke: #374151; stroke-width: 1; stroke-dasharray: 3 2; fill: #374151; }
@media (prefers-color-scheme: dark) {
.week text { fill: #e5e7eb; }
.week .page { fill: #111827; }
.week .dim { fill: #9ca3af; }
.week .grid { stroke: #374151; }
.week .border { stroke: #6b7280; }
.week .on { fill: #2dd4bf; stroke: #111827; }
.week .onName { fill: #042f2e; }
.week .off { fill: #2b3442; stroke: #6b7280; }
.week .offName { fill: #e5e7eb; }
.week .activating { fill: #1e3a8a; stroke: #93c5fd; }
.week .activatingName { fill: #dbeafe; }
.week .deactivating { fill: #451a03; stroke: #fbbf24; }
.week .deactivatingName { fill: #fef3c7; }
.week .overlap { fill: #f472b6; fill-opacity: .3; }
.week .overlapEdge { fill: #f472b6; }
.week .frame { fill: #111827; stroke: #a78bfa; }
.week .frameOpen { fill: #4c1d95; stroke: #a78bfa; }
.week .frameName { fill: #ede9fe; }
.week .start { fill: #c4b5fd; stroke: #111827; }
.week .past { fill: #111827; }
.week .now { stroke: #f9fafb; fill: #f9fafb; }
.week .nowName { fill: #f9fafb; }
.week .reboot { stroke: #f87171; fill: #f87171; }
.week .rebootName { fill: #fca5a5; }
.week .clock { stroke: #9ca3af; fill: #9ca3af; }
}
)";

} // namespace tools::horactl
