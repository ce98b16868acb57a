#pragma once

#include "tools/horactl/question.h"

#include <string>

namespace tools::horactl {

// What a horad that starts at the question's present has made of the tables once it is quiet: one screen for
// a person, or an object.
std::string nowCommand(const Question& question);

} // namespace tools::horactl
