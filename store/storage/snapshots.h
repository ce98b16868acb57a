#pragma once

#include "store/storage/sqlite.h"
#include "store/storage/tablereader.h"

#include <array>
#include <memory>
#include <string>

namespace store {

// A connection on which a long reading goes on while others commit: it sees the last commit of the moment in
// which it was taken.
class Snapshot {
public:
    Snapshot(const std::string& path, const Schema& schema);

    Connection& connection() { return connection_; }
    TableReader& reader() { return reader_; }
    velta::protocol::EResultCode begin();
    void end();

private:
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
    Snapshots(const std::string& path, const Schema& schema) : path_(path), schema_(schema) {}

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
    // Nothing where none is free.
    velta::protocol::EResultCode take(Lease& lease);

private:
    struct Place {
        std::unique_ptr<Snapshot> snapshot; // made when it is needed
        bool taken = false;
    };

    const std::string& path_;
    const Schema& schema_;
    std::array<Place, most> places_;
};

} // namespace store
