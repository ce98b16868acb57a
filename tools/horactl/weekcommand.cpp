#include "tools/horactl/weekcommand.h"

#include "tools/errors.h"
#include "tools/horactl/week.h"
#include "tools/horactl/weekbars.h"
#include "tools/output.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace tools::horactl {

void weekCommand(const Question& question, std::time_t from, const std::optional<std::string>&,
                 const std::optional<std::string>&) {
    const WeekPicture picture = pictureOf(question.household, question.repeatDelay, from, question.present,
                                          circumstancesOf(question, {}));
    print(barsOf(picture, styleOfStandardOutput()));
}

} // namespace tools::horactl
