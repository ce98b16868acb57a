#include "velta/protocol/resultcode.h"

#include <iterator>

namespace velta::protocol {

namespace {

struct CodeText {
    int code;
    const char* text;
};

constexpr CodeText codeTexts[] = {
    {code::success, "success"},
    {code::failure, "failure"},
    {code::notConnected, "not connected to the configuration store"},
    {code::timedOut, "the configuration store did not answer in time"},
    {code::badMessage, "message can't be understood"},
    {code::wrongVersion, "protocol version is not supported"},
    {code::notPermitted, "not permitted"},
    {code::tooManyClients, "too many clients"},
    {code::tooLarge, "too large"},
    {code::busy, "another transaction is open"},
    {code::noTransaction, "no transaction is open"},
    {code::transactionOpen, "a transaction is open already"},
    {code::transactionExpired, "transaction was rolled back, it was held for too long"},
    {code::unknownTable, "unknown table"},
    {code::unknownColumn, "unknown column"},
    {code::noSuchRow, "no such row"},
    {code::wrongKind, "value of the wrong kind"},
    {code::notSingleRow, "not a single-row table"},
    {code::singleRow, "a single-row table"},
    {code::duplicateId, "row exists already"},
    {code::storageFailed, "storage failed"},
    {code::storageFull, "storage is full"},
    {code::readOnly, "storage is read-only"},
    {code::outdated, "the rows are from before the connection was lost, they are read again first"},
    {code::outcomeUnknown, "outcome unknown"},
    {code::outOfMemory, "out of memory"},
    {code::stopping, "the program is about to end"},
    {code::clusterUnreachable, "the cluster can't be reached"},
    {code::conflict, "it was changed meanwhile, by another device or by a change that came late"},
    {code::mixedChange, "a transaction can't change shared and local cells"},
};

static_assert(std::size(codeTexts) == code::mixedChange + 1, "each code has a text");

std::string textOf(int code) {
    for (const CodeText& entry : codeTexts)
        if (entry.code == code)
            return entry.text;
    return "error " + std::to_string(code);
}

} // namespace

std::string EResultCode::strerror() const {
    return detail_.empty() ? textOf(code_) : textOf(code_) + ": " + detail_;
}

} // namespace velta::protocol
