#pragma once

#include "store/storage/databasefile.h"
#include "store/storage/schema.h"
#include "store/storage/sqlite.h"
#include "store/storage/tablereader.h"

#include <array>
#include <memory>
#include <utility>

namespace store {

// A connection on which a long reading goes on while others commit: it sees the last commit of the moment in
// which it was taken.
class Snapshot {
public:
    // Throws StorageError.
    Snapshot(const DatabaseFile& file, const Schema& schema);

    TableReader& reader() { return reader_; }
    // Opens its connection where that was closed. Throws StorageError.
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

// The few snapshots that may be open at a time. An open one keeps the log from starting anew.
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

    // Makes all connections now: the file is about to lose its name. Throws StorageError.
    void connectAll();
    bool free() const;
    bool anyTaken() const;
    // Whether one was given back since this was asked last.
    bool takeGivenBack() { return std::exchange(givenBack_, false); }
    // Readings that go on get an error.
    void closeAll();
    // Nothing where none is free.
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
