#pragma once

#include "tools/horactl/question.h"

#include <string>
#include <vector>

namespace tools::horactl {

// One of the things that horad asks before it acts.
struct Condition {
    std::string name;
    bool met;
    std::string value;
    std::string limit; // what it is held against; empty where the value says all
};

// Why a horad that starts at the question's present does something or does not.
struct Explanation {
    std::string subject;
    bool acts = false;
    std::string decides;               // the condition or row that does
    std::vector<Condition> conditions; // in the order in which horad asks
    std::optional<std::time_t> next;   // when it changes, where time alone changes it
    std::string summary;               // for a person
    std::vector<std::string> notes;    // what the running horad may know better
};

// The subject is "wlan", "reboot", a time frame or a plan by its row, "TimePlans.2". Throws WrongUse for
// anything else and Refused for a row that is not there.
Explanation explain(const Question& question, const std::string& subject);

// Explains, for a person or a program.
std::string whyCommand(const Question& question, const std::string& subject);

} // namespace tools::horactl
