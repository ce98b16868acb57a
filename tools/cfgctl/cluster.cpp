#include "tools/cfgctl/cluster.h"

#include "tools/cfgctl/childprocess.h"
#include "tools/cfgctl/clusterstatus.h"
#include "tools/errors.h"
#include "tools/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>
#include <utility>

#include <arpa/inet.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tools::cfgctl {

using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr const char* database = "horad";
constexpr const char* serverPackage = "openvswitch-common";
constexpr const char* storePackage = "cfgserver";

constexpr seconds answerTime{5};
constexpr seconds leavingTime{30};
constexpr milliseconds leavingInterval{200}; // between two looks whether it has left

// Where a member's things lie.
struct Place {
    std::string folder;
    std::string file;
    std::string control;
};

Place placeOf(const std::string& given) {
    std::string folder = std::filesystem::absolute(given).lexically_normal();
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    return {folder, folder + "/member.db", folder + "/member.ctl"};
}

// What follows HOST: in an address.
bool isPort(const std::string& text) {
    constexpr unsigned last = 65535;
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number >= 1 && number <= last;
}

// An address that others can reach: none that stands for all addresses.
bool isHost(const std::string& text) {
    in_addr four{};
    if (inet_pton(AF_INET, text.c_str(), &four) == 1)
        return four.s_addr != INADDR_ANY;
    in6_addr six{};
    if (text.size() < 2 || text.front() != '[' || text.back() != ']')
        return false;
    return inet_pton(AF_INET6, text.substr(1, text.size() - 2).c_str(), &six) == 1 &&
           !IN6_IS_ADDR_UNSPECIFIED(&six);
}

void checkAddress(const std::string& text) {
    constexpr std::size_t kind = 4;
    const std::size_t colon = text.rfind(':');
    const bool begins = text.compare(0, kind, "tcp:") == 0 || text.compare(0, kind, "ssl:") == 0;
    if (!begins || colon <= kind || !isHost(text.substr(kind, colon - kind)) ||
        !isPort(text.substr(colon + 1)))
        throw WrongUse(inQuotes(text) + " is not the address of a member, as in tcp:192.168.1.2:6641");
}

// The folder is made if need be, but not those above it.
void requireFolder(const Place& place) {
    constexpr mode_t onlyOwner = 0700;
    struct stat status {};
    if (mkdir(place.folder.c_str(), onlyOwner) != 0 && errno != EEXIST)
        refuseByErrno(place.folder);
    if (stat(place.folder.c_str(), &status) != 0)
        refuseByErrno(place.folder);
    if (!S_ISDIR(status.st_mode))
        throw Refused(place.folder + " is no folder");
    if (lstat(place.file.c_str(), &status) == 0)
        throw Refused(place.file + " is there already: a member's file is made once");
}

// Whoever owns the folder has to own the file, since the member runs as that user. Nothing is written there
// as root, which a link in the folder could lead elsewhere.
std::optional<Owner> ownerOf(const Place& place) {
    struct stat status {};
    if (stat(place.folder.c_str(), &status) != 0)
        refuseByErrno(place.folder);
    if (geteuid() != 0 || status.st_uid == 0)
        return std::nullopt;
    return Owner{status.st_uid, status.st_gid};
}

// Of the tables that the store has. The store's own program says it, so that the two always agree.
std::string clusterSchema(const std::vector<std::string>& schemas) {
    std::vector<std::string> command = {"cfgserver", "--cluster-schema"};
    for (const std::string& file : schemas)
        command.push_back("--schema=" + file);
    const ChildEnd end = runChild(command, {answerTime, std::nullopt, storePackage});
    if (end.late)
        throw Refused("cfgserver does not say the schema");
    if (end.exitStatus != 0)
        throw Refused(complaintOf(end));
    return end.output;
}

// Text that another program can read as a file, whoever it runs as.
class Handout {
public:
    explicit Handout(const std::string& text) : descriptor_(memfd_create("schema", 0)) {
        if (descriptor_ < 0 ||
            write(descriptor_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            refuseByErrno("the schema");
    }
    ~Handout() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    Handout(const Handout&) = delete;
    Handout& operator=(const Handout&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

void runTool(const Place& place, std::vector<std::string> command) {
    command.insert(command.begin(), "ovsdb-tool");
    const ChildEnd end = runChild(command, {answerTime, ownerOf(place), serverPackage});
    if (!end.late && end.exitStatus == 0)
        return;
    (void)unlink(place.file.c_str()); // half a file would be in the way the next time
    throw Refused(place.file + ": " + (end.late ? "it was not made in time" : complaintOf(end)));
}

std::string howToStart(const Place& place) {
    if (place.folder == Arguments().member.folder)
        return "Start it:\n  systemctl enable --now horad-cluster\n";
    return "Start it:\n  ovsdb-server --remote=punix:" + place.folder +
           "/db.sock --unixctl=" + place.control + " " + place.file + "\n";
}

// A running member's answer to a command, which it may refuse.
ChildEnd ask(const Place& place, const std::string& command, bool ofDatabase) {
    struct stat status {};
    if (stat(place.file.c_str(), &status) != 0)
        refuseByErrno(place.file);
    std::vector<std::string> words = {"ovs-appctl", "-t", place.control, command};
    if (ofDatabase)
        words.emplace_back(database);
    ChildEnd end = runChild(words, {answerTime, std::nullopt, serverPackage});
    if (end.late)
        throw Refused("the member of " + place.folder + " runs, and does not answer");
    if (end.errors.find("cannot connect") != std::string::npos)
        throw Refused("the member of " + place.folder + " does not run: " + complaintOf(end));
    return end;
}

std::string outputOf(const ChildEnd& end) {
    if (end.exitStatus != 0)
        throw Refused(complaintOf(end));
    return end.output;
}

enum class Having { Serves, GaveUp, Left };

// Whether a member still has its database, and what it says of the cluster then.
std::pair<Having, std::string> askStatus(const Place& place) {
    const ChildEnd end = ask(place, "cluster/status", true);
    if (end.exitStatus == 0 && end.output.find("\nStatus: failed\n") != std::string::npos)
        return {Having::GaveUp, ""}; // in a moment it won't know its cluster any more
    if (end.exitStatus == 0)
        return {Having::Serves, end.output};
    if (end.errors.find("unknown cluster") == std::string::npos)
        throw Refused(complaintOf(end));
    const std::string names = "\n" + outputOf(ask(place, "ovsdb-server/list-dbs", false));
    const bool has = names.find(std::string("\n") + database + "\n") != std::string::npos;
    return {has ? Having::GaveUp : Having::Left, ""};
}

ClusterStatus statusOf(const Place& place) {
    const auto [having, text] = askStatus(place);
    switch (having) {
    case Having::Serves:
        return readClusterStatus(text);
    case Having::GaveUp:
        throw Refused("the member of " + place.folder +
                      " runs, but could not write and answers nobody: its log says why. Is the disk full?");
    case Having::Left:
        break;
    }
    throw Refused("the member of " + place.folder + " has left its cluster");
}

// What stands in the way of leaving now.
void checkLeaving(const ClusterStatus& status) {
    if (status.isLeaving())
        return;
    if (status.isJoining())
        throw Refused("the member has not joined yet: stop it and remove its file");
    if (status.members.size() == 1)
        throw Refused("it is the only member: stop it, and its cluster is gone with its file");
    if (!status.takesPart())
        throw Refused("the member can't reach a majority, which would have to agree");
}

void waitUntilLeft(const Place& place) {
    const auto deadline = std::chrono::steady_clock::now() + leavingTime;
    while (askStatus(place).first != Having::Left) {
        if (std::chrono::steady_clock::now() >= deadline)
            throw Refused(
                "the member is leaving, and the others have not agreed within 30 s: look again with "
                "cfgctl cluster status");
        std::this_thread::sleep_for(leavingInterval);
    }
}

} // namespace

std::string createCommand(const Arguments& arguments) {
    const MemberArguments& member = arguments.member;
    checkAddress(member.address);
    const Place place = placeOf(member.folder);
    requireFolder(place);
    const Handout schema(clusterSchema(member.schemas));
    runTool(place, {"create-cluster", place.file, schema.path(), member.address});
    return place.file + " is the first member of a new cluster, at " + member.address + ". " +
           howToStart(place);
}

std::string joinCommand(const Arguments& arguments) {
    const MemberArguments& member = arguments.member;
    checkAddress(member.address);
    for (const std::string& other : member.others) {
        checkAddress(other);
        if (other == member.address)
            throw WrongUse(inQuotes(other) + " is this member's own address, and not that of another one");
    }
    const Place place = placeOf(member.folder);
    requireFolder(place);
    std::vector<std::string> command = {"join-cluster", place.file, database, member.address};
    command.insert(command.end(), member.others.begin(), member.others.end());
    runTool(place, command);
    return place.file + " is a member, at " + member.address + ", that joins a cluster once it runs.\n" +
           howToStart(place);
}

std::string statusCommand(const Arguments& arguments) {
    const ClusterStatus status = statusOf(placeOf(arguments.member.folder));
    return arguments.json ? clusterAsJson(status) : clusterInWords(status);
}

std::string leaveCommand(const Arguments& arguments) {
    const Place place = placeOf(arguments.member.folder);
    const ClusterStatus status = statusOf(place);
    checkLeaving(status);
    if (!status.isLeaving())
        (void)outputOf(ask(place, "cluster/leave", true));
    waitUntilLeft(place);
    return "The member at " + status.address + " has left its cluster. Stop it, and remove " + place.file +
           ": it can't come back. \"cfgctl cluster join\" makes a new one.\n";
}

} // namespace tools::cfgctl
