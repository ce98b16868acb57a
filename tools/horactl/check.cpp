#include "tools/horactl/check.h"

#include "tools/cells.h"
#include "tools/horactl/findings.h"
#include "tools/text.h"

#include <nlohmann/json.hpp>

namespace tools::horactl {

namespace {

constexpr void (*const kinds[])(Inquiry&, Findings&) = {
    findInPlans, findInWlan, findInClockChanges, findInFrames, findInReboot,
};

} // namespace

std::vector<Finding> check(const Household& household, const CheckInput& input) {
    Inquiry inquiry(household, input);
    Findings findings;
    for (const auto find : kinds)
        find(inquiry, findings);
    return findings;
}

std::string findingsAsText(const std::vector<Finding>& findings) {
    if (findings.empty())
        return "Nothing looks as if it were meant otherwise.\n";
    std::string text;
    for (const Finding& finding : findings)
        text += printable(finding.row) + ' ' + printable(finding.column) + ": " + asWord(finding.value) +
                "\n    horad:  " + printable(finding.meaning) + "\n    meant?  " + printable(finding.meant) +
                '\n';
    return text;
}

std::string findingsAsJson(const std::vector<Finding>& findings) {
    std::string lines;
    for (const Finding& finding : findings)
        lines += serialise({{"row", finding.row},
                            {"column", finding.column},
                            {"value", finding.value},
                            {"meaning", finding.meaning},
                            {"meant", finding.meant}}) +
                 '\n';
    return lines;
}

} // namespace tools::horactl
