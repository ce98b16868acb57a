#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools::cfgctl {

// What one member of a cluster knows of another, or of itself.
struct MemberSeen {
    std::string id; // its first four digits, as everywhere here
    std::string address;
    bool self = false;
    bool linked = false;                    // a connection is open
    std::optional<std::uint64_t> holdsUpTo; // the number of its last change; only the leader knows it
    std::optional<std::uint64_t> silence;   // milliseconds since it was last heard of
};

// What a member says of its cluster.
struct ClusterStatus {
    std::string id;
    std::string address;
    std::string cluster;          // the whole identifier; empty while it joins
    std::string state;            // "cluster member", "joining cluster", ...: in the member's own words
    std::string role;             // "leader", "follower" or "candidate"
    std::string leader;           // "self", the four digits, or "unknown"
    std::string asked;            // the addresses that it asks to let it in
    std::uint64_t election = 0;   // milliseconds of silence of a leader until the others elect one
    std::uint64_t lastChange = 0; // its number
    std::uint64_t uncommitted = 0;
    std::uint64_t unapplied = 0;
    std::vector<MemberSeen> members;

    bool leads() const { return leader == "self"; }
    bool takesPart() const { return state == "cluster member"; }
    bool isJoining() const { return state == "joining cluster"; }
    bool isLeaving() const { return state == "leaving cluster"; }
    // Nothing was heard of it for so long that it may be gone; only of members that report to this one.
    bool isSilent(const MemberSeen& member) const;
};

// Reads what the member's control socket answers to cluster/status. Throws Refused where it has another form.
ClusterStatus readClusterStatus(const std::string& text);

// For a person: who leads, who follows and how far behind, what is not connected.
std::string clusterInWords(const ClusterStatus& status);
std::string clusterAsJson(const ClusterStatus& status);

} // namespace tools::cfgctl
