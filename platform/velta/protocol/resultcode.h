#pragma once

#include <string>
#include <utility>

namespace velta::protocol {

// The results of store operations. The numbers are sent on the wire: they are never reused.
namespace code {
inline constexpr int success = 0;
inline constexpr int failure = 1;
inline constexpr int notConnected = 2;
inline constexpr int timedOut = 3;
inline constexpr int badMessage = 4;
inline constexpr int wrongVersion = 5;
inline constexpr int notPermitted = 6;
inline constexpr int tooManyClients = 7;
inline constexpr int tooLarge = 8;
inline constexpr int busy = 9;
inline constexpr int noTransaction = 10;
inline constexpr int transactionOpen = 11;
inline constexpr int transactionExpired = 12;
inline constexpr int unknownTable = 13;
inline constexpr int unknownColumn = 14;
inline constexpr int noSuchRow = 15;
inline constexpr int wrongKind = 16;
inline constexpr int notSingleRow = 17;
inline constexpr int singleRow = 18;
inline constexpr int duplicateId = 19;
inline constexpr int storageFailed = 20;
inline constexpr int storageFull = 21;
inline constexpr int readOnly = 22;
inline constexpr int outdated = 23;
inline constexpr int outcomeUnknown = 24;
inline constexpr int outOfMemory = 25;
inline constexpr int stopping = 26;
inline constexpr int clusterUnreachable = 27;
inline constexpr int conflict = 28;
inline constexpr int mixedChange = 29;
} // namespace code

// The result of every store operation: a code, and as detail what it is about ("unknown table: Wlan").
class [[nodiscard]] EResultCode {
public:
    EResultCode() = default;
    EResultCode(int code) : code_(code) {}
    EResultCode(int code, std::string detail) : code_(code), detail_(std::move(detail)) {}

    bool ok() const { return code_ == code::success; }
    int code() const { return code_; }
    const std::string& detail() const { return detail_; }

    // The code's text, then ": " and the detail where there is one.
    std::string strerror() const;

private:
    int code_ = code::success;
    std::string detail_;
};

} // namespace velta::protocol
