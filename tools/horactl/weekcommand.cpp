#include "tools/horactl/weekcommand.h"

#include "tools/errors.h"
#include "tools/horactl/week.h"
#include "tools/horactl/weekbars.h"
#include "tools/horactl/weekhtml.h"
#include "tools/horactl/weeksvg.h"
#include "tools/output.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace tools::horactl {

namespace {

void writeFile(const std::string& name, const std::string& content) {
    errno = 0;
    std::ofstream file(name, std::ios::binary);
    file << content;
    file.close();
    if (!file)
        throw Refused(name + ": " + std::strerror(errno != 0 ? errno : EIO));
}

} // namespace

void weekCommand(const Question& question, std::time_t from, const std::optional<std::string>& svgFile,
                 const std::optional<std::string>& htmlFile) {
    const WeekPicture picture = pictureOf(question.household, question.repeatDelay, from, question.present,
                                          circumstancesOf(question, lineOf(question), LineRuns::OverSoon));
    if (svgFile)
        writeFile(*svgFile, svgOf(picture));
    if (htmlFile)
        writeFile(*htmlFile, htmlOf(picture));
    if (!svgFile && !htmlFile)
        print(barsOf(picture, styleOfStandardOutput()));
}

} // namespace tools::horactl
