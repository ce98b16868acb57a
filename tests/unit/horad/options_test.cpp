#include "options.h"
#include "support/capturedlog.h"

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using orv::horad::Options;
using orv::horad::OptionsResult;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* usage =
    "Usage: horad [OPTION] -t TABLE [-t TABLE]\n"
    "\n"
    "  -d, --daemon\t\tStart as daemon\n"
    "  -v, --verbose\t\tPrint debug messages\n"
    "  -t, --table\t\ta table to be watched\n"
    "  -r, --repeatdelay\tDelay between two attemps to execute time window controlled services\n"
    "  -h, --help\t\tPrints this help\n";

struct Parsed {
    OptionsResult result = OptionsResult::Wrong;
    Options options;
    std::string output;
    std::string errors;
};

using Arguments = std::vector<std::string>;

Parsed parse(Arguments arguments) {
    arguments.insert(arguments.begin(), "horad");
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    optind = 0; // from the beginning, whatever was parsed before

    Parsed parsed;
    const fakes::CapturedOutput output(STDOUT_FILENO);
    const fakes::CapturedOutput errors(STDERR_FILENO);
    parsed.result = parseOptions(static_cast<int>(arguments.size()), argv.data(), parsed.options);
    parsed.output = output.text();
    parsed.errors = errors.text();
    return parsed;
}

std::string textOf(const Arguments& arguments) {
    std::string text;
    for (const std::string& argument : arguments)
        text += " '" + argument + "'";
    return text;
}

TEST(Options, NothingIsSetWithoutArguments) {
    const Parsed parsed = parse({});
    EXPECT_EQ(parsed.result, OptionsResult::Run);
    EXPECT_FALSE(parsed.options.daemon);
    EXPECT_FALSE(parsed.options.verbose);
    EXPECT_EQ(parsed.options.repeatDelay, 0u);
    EXPECT_THAT(parsed.options.tables, IsEmpty());
}

struct SettingsCase {
    Arguments arguments;
    bool daemon;
    bool verbose;
    std::uint32_t repeatDelay;
    std::list<std::string> tables;
};

const SettingsCase settingsCases[] = {
    {{"-d"}, true, false, 0, {}},
    {{"--daemon"}, true, false, 0, {}},
    {{"-v"}, false, true, 0, {}},
    {{"--verbose"}, false, true, 0, {}},
    {{"-dv"}, true, true, 0, {}},
    {{"--verb"}, false, true, 0, {}},
    {{"-dvt", "A", "-r9"}, true, true, 9, {"A"}},
    {{"--daemon", "--verbose", "--table", "A", "--repeatdelay", "9"}, true, true, 9, {"A"}},
    {{"--table=A", "--repeatdelay=9"}, false, false, 9, {"A"}},
    // tables: in order, duplicates kept, any text
    {{"-t", "B", "-t", "A", "-t", "B"}, false, false, 0, {"B", "A", "B"}},
    {{"-tA", "--table=A"}, false, false, 0, {"A", "A"}},
    {{"-t", "", "-t", "-d", "-t", "%s%n"}, false, false, 0, {"", "-d", "%s%n"}},
    // the repeat delay: no check, the last one wins
    {{"-r", "5"}, false, false, 5, {}},
    {{"-r", "5", "-r", "7"}, false, false, 7, {}},
    {{"-r", "5", "-r", "abc"}, false, false, 0, {}},
    {{"-r", "abc"}, false, false, 0, {}},
    {{"-r", ""}, false, false, 0, {}},
    {{"-r", "12x"}, false, false, 12, {}},
    {{"-r", " 12"}, false, false, 12, {}},
    {{"-r", "0x10"}, false, false, 0, {}},
    {{"-r", "010"}, false, false, 10, {}},
    {{"-r", "4294967295"}, false, false, UINT32_MAX, {}},
    {{"-r", "4294967296"}, false, false, UINT32_MAX, {}},
    {{"-r", "99999999999999999999999999"}, false, false, UINT32_MAX, {}},
    {{"-r", "-5"}, false, false, 4294967291, {}},
    // what is no option is passed over
    {{"word", "-v"}, false, true, 0, {}},
    {{"-v", "--", "-d", "-x"}, false, true, 0, {}},
};

TEST(Options, AreReadFromTheCommandLine) {
    for (const SettingsCase& given : settingsCases) {
        SCOPED_TRACE(textOf(given.arguments));
        const Parsed parsed = parse(given.arguments);
        EXPECT_EQ(parsed.result, OptionsResult::Run);
        EXPECT_EQ(parsed.options.daemon, given.daemon);
        EXPECT_EQ(parsed.options.verbose, given.verbose);
        EXPECT_EQ(parsed.options.repeatDelay, given.repeatDelay);
        EXPECT_EQ(parsed.options.tables, given.tables);
        EXPECT_THAT(parsed.output, IsEmpty());
        EXPECT_THAT(parsed.errors, IsEmpty());
    }
}

TEST(Options, HelpPrintsTheUsageOnStandardOutput) {
    for (const Arguments& arguments : {Arguments{"-h"}, Arguments{"--help"}, Arguments{"-v", "-h"},
                                       Arguments{"-h", "-x"}, Arguments{"-h", "-t"}, Arguments{"-hx"}}) {
        SCOPED_TRACE(textOf(arguments));
        const Parsed parsed = parse(arguments);
        EXPECT_EQ(parsed.result, OptionsResult::Help);
        EXPECT_EQ(parsed.output, usage);
        EXPECT_THAT(parsed.errors, IsEmpty());
    }
}

TEST(Options, NothingBehindHelpIsActedOn) {
    const Parsed parsed = parse({"-d", "-h", "-v", "-t", "A"});
    EXPECT_TRUE(parsed.options.daemon);
    EXPECT_FALSE(parsed.options.verbose);
    EXPECT_THAT(parsed.options.tables, IsEmpty());
}

TEST(Options, AWrongOneIsSaidOnStandardError) {
    for (const Arguments& arguments :
         {Arguments{"-x"}, Arguments{"--nope"}, Arguments{"-t"}, Arguments{"--table"}, Arguments{"-r"},
          Arguments{"--repeatdelay"}, Arguments{"--daemon=yes"}, Arguments{"-t", "A", "-x"},
          Arguments{"-x", "-h"}, Arguments{"-xh"}}) {
        SCOPED_TRACE(textOf(arguments));
        const Parsed parsed = parse(arguments);
        EXPECT_EQ(parsed.result, OptionsResult::Wrong);
        EXPECT_THAT(parsed.errors, EndsWith("Wrong option\n"));
        EXPECT_THAT(parsed.output, IsEmpty());
    }
}

TEST(Options, NothingBehindAWrongOneIsActedOn) {
    const Parsed parsed = parse({"-x", "-y", "-v"});
    EXPECT_FALSE(parsed.options.verbose);
    EXPECT_THAT(parsed.errors, Not(HasSubstr("'y'")));
}

} // namespace
