#pragma once

#include "store/storage/schema.h"
#include "store/storage/sharedreads.h"
#include "store/storage/sharing.h"
#include "velta/namelist.h"
#include "velta/protocol/message.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace store {

// What a client has done in its transaction so far: what it has read of shared tables, and its writes, with
// which the transaction can be made again. Its memory is bounded: of more writes it only notes that they were
// too many.
class TransactionWork {
public:
    using Request = velta::protocol::Request;

    static constexpr std::size_t limit = std::size_t{1024} * 1024; // bytes of the writes

    // An Id that the devices keep free for this transaction.
    struct ReservedId {
        std::size_t table;
        std::uint32_t id;
    };

    // A request is about to be carried out.
    void note(const Schema& schema, const Request& request);
    // A write was carried out. `number` is the Id of a new row.
    void keep(const Request& request, std::uint32_t number);
    void addReserved(const ReservedId& reserved) { reserved_.push_back(reserved); }

    const SharedReads& reads() const { return reads_; }
    const std::vector<Request>& writes() const { return writes_; }
    bool tooManyWrites() const { return bytes_ > limit; }
    const std::vector<ReservedId>& reserved() const { return reserved_; }
    // Whether it has read or written one of the tables.
    bool usesAny(const velta::NameList& tables) const;

private:
    SharedReads reads_;
    std::set<std::string> tables_;
    std::vector<Request> writes_;
    std::size_t bytes_ = 0;
    std::vector<ReservedId> reserved_;
};

void giveBack(Sharing& sharing, const std::vector<TransactionWork::ReservedId>& reserved);

// Where the table stands in the schema.
std::optional<std::size_t> indexOf(const Schema& schema, const std::string& table);

} // namespace store
