#pragma once

#include "cfg/configclient.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tools::cfgctl {

inline constexpr const char* programName = "cfgctl";

struct Target {
    std::string table;
    std::optional<std::uint32_t> id;
};

// A member of a cluster, as the commands of "cluster" are given it.
struct MemberArguments {
    std::string folder = "/var/lib/horad-cluster";
    std::string address;
    std::vector<std::string> others;  // addresses of members that are asked to let it in
    std::vector<std::string> schemas; // files with tables besides the store's own
};

using CellText = std::pair<std::string, std::string>; // column and value

// The command line, taken apart. Which of these a command has stands in main.cpp; the others stay empty.
struct Arguments {
    std::string socket = "/tmp/cfgserver.socket";
    bool json = false;
    Target target;
    std::string column;
    std::vector<CellText> cells;
    std::vector<std::string> tables; // none stands for all
    std::string file;
    MemberArguments member;
    bool time = true; // in front of each line of watch
};

// These throw WrongUse for what has not that form: TABLE or TABLE.ID, TABLE.ID, COLUMN=VALUE with each column
// once.
Target parseTarget(const std::string& text);
Target parseRowTarget(const std::string& text);
std::vector<CellText> parseCells(const std::vector<std::string>& texts);

// Each returns what is to be printed, or has printed what is large, and throws Refused where the store does
// not do it.
std::string listCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string showCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string columnsCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string getCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string setCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string addCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string removeCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string loadCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);
std::string dumpCommand(orv::cfg::ConfigClient& client, const Arguments& arguments);

} // namespace tools::cfgctl
