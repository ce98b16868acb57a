#include "tools/cfgctl/clusterstatus.h"

#include "tools/cells.h"
#include "tools/errors.h"
#include "tools/table.h"
#include "tools/terminal.h"
#include "tools/text.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string_view>

namespace tools::cfgctl {

using nlohmann::ordered_json;

namespace {

constexpr std::size_t idDigits = 4;
constexpr const char* memberIndent = "    ";

using Fields = std::map<std::string, std::string>;

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// The number that the text begins with.
std::optional<std::uint64_t> numberIn(std::string_view text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    (void)end;
    return error == std::errc() ? std::optional<std::uint64_t>(number) : std::nullopt;
}

// The number behind the first place where the line has this.
std::optional<std::uint64_t> numberBehind(std::string_view line, std::string_view key) {
    const std::size_t at = line.find(key);
    return at == std::string_view::npos ? std::nullopt : numberIn(line.substr(at + key.size()));
}

// "a1b2 (a1b2 at tcp:10.0.0.1:6641) (self) next_index=7 match_index=6 last msg 12 ms ago".
MemberSeen readMember(std::string_view line) {
    MemberSeen member;
    member.id = line.substr(0, idDigits);
    constexpr std::string_view before = " at ";
    const std::size_t at = line.find(before);
    const std::size_t end = line.find(')');
    if (at == std::string_view::npos || end == std::string_view::npos || end < at)
        throw Refused("the member describes another one in an unknown way: " + inQuotes(line));
    member.address = line.substr(at + before.size(), end - at - before.size());
    const std::string_view rest = line.substr(end);
    member.self = rest.find("(self)") != std::string_view::npos;
    member.holdsUpTo = numberBehind(rest, "match_index=");
    member.silence = numberBehind(rest, "last msg ");
    return member;
}

// The lines "Name: value" go to the fields, those of the other members to the status.
Fields readLines(const std::string& text, ClusterStatus& status) {
    Fields fields;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (startsWith(line, memberIndent))
            status.members.push_back(readMember(std::string_view(line).substr(idDigits)));
        else if (const std::size_t colon = line.find(": "); colon != std::string::npos)
            fields.emplace(line.substr(0, colon), line.substr(colon + 2));
    }
    return fields;
}

std::string required(const Fields& fields, const char* name) {
    const auto field = fields.find(name);
    if (field == fields.end())
        throw Refused(std::string("the member does not say its ") + inQuotes(name));
    return field->second;
}

std::uint64_t requiredNumber(const Fields& fields, const char* name) {
    const std::optional<std::uint64_t> number = numberIn(required(fields, name));
    if (!number)
        throw Refused(std::string("the member does not say its ") + inQuotes(name) + " as a number");
    return *number;
}

// "b41a (b41a4337-a5a0-4544-b8d4-40b3c82a3462)" or "not yet known".
std::string identifierIn(const std::string& text) {
    const std::size_t begin = text.find('(');
    const std::size_t end = text.find(')');
    if (begin == std::string::npos || end == std::string::npos || end < begin)
        return "";
    return text.substr(begin + 1, end - begin - 1);
}

// A connection in parentheses is one that is being tried.
bool isLinked(const std::string& connections, const std::string& id) {
    const std::string words = " " + connections;
    return words.find(" ->" + id) != std::string::npos || words.find(" <-" + id) != std::string::npos;
}

// "[2, 12]": the log begins behind 2, and the next entry will be 12.
std::uint64_t lastEntryIn(const std::string& log) {
    const std::optional<std::uint64_t> next = numberBehind(log, ", ");
    if (!next || *next == 0)
        throw Refused("the member describes its log in an unknown way: " + inQuotes(log));
    return *next - 1;
}

std::string seconds(std::uint64_t milliseconds) {
    constexpr std::uint64_t second = 1000;
    return std::to_string(milliseconds / second) + " s";
}

std::string howFar(const ClusterStatus& status, const MemberSeen& member) {
    if (!member.holdsUpTo)
        return "follows";
    if (*member.holdsUpTo >= status.lastChange)
        return "follows, has everything";
    const std::uint64_t behind = status.lastChange - *member.holdsUpTo;
    return "follows, " + std::to_string(behind) + (behind == 1 ? " change behind" : " changes behind");
}

std::string silent(const MemberSeen& member) {
    return member.silence ? "silent for " + seconds(*member.silence) : "not heard of yet";
}

// What this member can say of another one: a leader hears of all, a follower of its leader only.
std::string describe(const ClusterStatus& status, const MemberSeen& member) {
    if (member.self)
        return status.leads() ? "this member, leads" : "this member";
    if (status.leads())
        return status.isSilent(member) ? "not connected, " + silent(member) : howFar(status, member);
    if (member.id == status.leader)
        return status.isSilent(member) ? "leads, but is " + silent(member) : "leads";
    return member.linked ? "connected" : "not connected";
}

std::string headline(const ClusterStatus& status) {
    const std::string name = "Member " + status.id + " at " + status.address;
    if (status.isJoining())
        return name + " waits to be let into a cluster by " + status.asked + ".";
    if (status.isLeaving())
        return name + " is leaving its cluster.";
    if (!status.takesPart())
        return name + " can't reach a majority: what is there is read on, and nothing can be changed. (" +
               status.state + ")";
    if (status.leads())
        return name + " leads.";
    if (status.leader == "unknown")
        return name + " knows of no leader: one is being elected.";
    return name + " follows " + status.leader + ".";
}

// Of the changes that this member holds.
std::string changes(const ClusterStatus& status) {
    std::string text = "It holds the changes up to number " + std::to_string(status.lastChange);
    if (status.uncommitted == 0 && status.unapplied == 0)
        return text + ", and all of them are in force.";
    return text + "; " + std::to_string(status.uncommitted) + " of them wait for a majority, " +
           std::to_string(status.unapplied) + " to be applied here.";
}

} // namespace

bool ClusterStatus::isSilent(const MemberSeen& member) const {
    constexpr unsigned patience = 2; // a busy machine is late at times
    return !member.silence || *member.silence > patience * election;
}

ClusterStatus readClusterStatus(const std::string& text) {
    ClusterStatus status;
    const Fields fields = readLines(text, status);
    status.id = required(fields, "Server ID").substr(0, idDigits);
    status.address = required(fields, "Address");
    status.cluster = identifierIn(required(fields, "Cluster ID"));
    status.state = required(fields, "Status");
    status.role = required(fields, "Role");
    status.leader = required(fields, "Leader");
    if (status.isJoining())
        status.asked = required(fields, "Remotes for joining");
    status.election = requiredNumber(fields, "Election timer");
    status.lastChange = lastEntryIn(required(fields, "Log"));
    status.uncommitted = requiredNumber(fields, "Entries not yet committed");
    status.unapplied = requiredNumber(fields, "Entries not yet applied");
    const auto connections = fields.find("Connections");
    for (MemberSeen& member : status.members)
        member.linked = connections != fields.end() && isLinked(connections->second, member.id);
    std::sort(status.members.begin(), status.members.end(),
              [](const MemberSeen& left, const MemberSeen& right) { return left.address < right.address; });
    return status;
}

std::string clusterInWords(const ClusterStatus& status) {
    std::string text = printable(headline(status)) + "\n";
    if (status.isJoining())
        return text;
    text += changes(status) + "\n\n";
    std::vector<TextRow> rows = {{"MEMBER", "ADDRESS", "STATE"}};
    for (const MemberSeen& member : status.members)
        rows.push_back({member.id, member.address, describe(status, member)});
    return text + aligned(rows, terminalWidth());
}

std::string clusterAsJson(const ClusterStatus& status) {
    const auto orNull = [](const auto& value) { return value ? ordered_json(*value) : ordered_json(); };
    ordered_json members = ordered_json::array();
    for (const MemberSeen& member : status.members) {
        const bool leads = member.self ? status.leads() : member.id == status.leader;
        members.push_back({{"member", member.id},
                           {"address", member.address},
                           {"self", member.self},
                           {"leads", leads},
                           {"connected", member.self || (leads || status.leads() ? !status.isSilent(member)
                                                                                 : member.linked)},
                           {"lastChange", orNull(member.holdsUpTo)},
                           {"silentMilliseconds", orNull(member.silence)}});
    }
    const ordered_json all = {
        {"member", status.id},
        {"address", status.address},
        {"cluster", status.cluster.empty() ? ordered_json() : ordered_json(status.cluster)},
        {"state", status.state},
        {"role", status.role},
        {"lastChange", status.lastChange},
        {"uncommitted", status.uncommitted},
        {"unapplied", status.unapplied},
        {"members", members}};
    return serialise(all, blanksALevel) + '\n';
}

} // namespace tools::cfgctl
