#pragma once

#include "store/storage/databasefile.h"
#include "store/storage/schema.h"
#include "store/storage/sqlite.h"
#include "store/storage/tablereader.h"

#include <array>
#include <memory>
#include <utility>

namespace store {

// A connection for a long reading. It sees the last commit before its begin(), whatever others commit later.
class Snapshot {
public:
    // Throws StorageError.
    Snapshot(const DatabaseFile& file, const Schema& schema);

    TableReader& reader() { return reader_; }
    // Opens the connection if it was closed. Throws StorageError.
    velta::protocol::EResultCode begin();
    void end();
    void close() { connection_.close(); }

private:
    void open();

    const DatabaseFile& file_;
    Connection connection_;
    TableReader reader_;
    Statement begin_;
    Statement end_;
};

// The few snapshots that may be open at a time. An open one keeps the write-ahead log from starting over.
class Snapshots {
public:
    static constexpr std::size_t most = 4;

    // Both outlive it.
    Snapshots(const DatabaseFile& file, const Schema& schema) : file_(file), schema_(schema) {}

    // Gives the snapshot back when it goes.
    struct GiveBack {
        Snapshots* owner;
        std::size_t place;
        void operator()(Snapshot* snapshot) const;
    };
    using Lease = std::unique_ptr<Snapshot, GiveBack>;

    // Makes all connections now, because the file is about to lose its name. Throws StorageError.
    void connectAll();
    bool free() const;
    bool anyTaken() const;
    // Whether one was given back since the last call.
    bool takeGivenBack() { return std::exchange(givenBack_, false); }
    // Readings from a snapshot fail then.
    void closeAll();
    // The lease stays empty if no snapshot is free.
    velta::protocol::EResultCode take(Lease& lease);

private:
    struct Place {
        std::unique_ptr<Snapshot> snapshot; // made when it is needed
        bool taken = false;
    };

    const DatabaseFile& file_;
    const Schema& schema_;
    std::array<Place, most> places_;
    bool givenBack_ = false;
};

} // namespace store
