#include "store/storage/snapshots.h"

#include "orv/error.h"

#include <algorithm>

namespace store {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

Snapshot::Snapshot(const DatabaseFile& file, const Schema& schema)
    : file_(file),
      connection_(file.path(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, Connection::Begin::Closed),
      reader_(schema, connection_),
      begin_(connection_, "BEGIN"),
      end_(connection_, "COMMIT") {
    open();
}

void Snapshot::open() {
    try {
        connection_.open();
        connection_.execute("PRAGMA cache_size = -128"); // KiB; each page is read once
        connection_.touchFiles();
        if (file_.displaced(0) == Displaced::Database) // then the connection has opened another file
            throw StorageError("the database file was removed, moved or replaced: " + file_.path());
    } catch (...) {
        connection_.close();
        throw;
    }
}

EResultCode Snapshot::begin() {
    if (!connection_.isOpen())
        open();
    Statement::Run run(begin_);
    return reader_.resultOf(run.step());
}

void Snapshot::end() {
    if (connection_.inTransaction()) {
        Statement::Run run(end_);
        (void)run.step(); // nothing was written
    }
}

void Snapshots::GiveBack::operator()(Snapshot* snapshot) const {
    ORV_ASSERT(owner->places_[place].taken && owner->places_[place].snapshot.get() == snapshot);
    snapshot->end();
    owner->places_[place].taken = false;
    owner->givenBack_ = true;
}

void Snapshots::connectAll() {
    for (Place& place : places_)
        place.snapshot = std::make_unique<Snapshot>(file_, schema_);
}

bool Snapshots::free() const {
    return std::any_of(places_.begin(), places_.end(), [](const Place& place) { return !place.taken; });
}

bool Snapshots::anyTaken() const {
    return std::any_of(places_.begin(), places_.end(), [](const Place& place) { return place.taken; });
}

void Snapshots::closeAll() {
    for (Place& place : places_)
        if (place.snapshot)
            place.snapshot->close();
}

EResultCode Snapshots::take(Lease& lease) {
    for (std::size_t i = 0; i < places_.size(); ++i) {
        Place& place = places_[i];
        if (place.taken)
            continue;
        try {
            if (!place.snapshot)
                place.snapshot = std::make_unique<Snapshot>(file_, schema_);
            if (EResultCode result = place.snapshot->begin(); !result.ok())
                return result;
        } catch (const StorageError& error) {
            return {code::storageFailed, error.what()};
        }
        place.taken = true;
        lease = Lease(place.snapshot.get(), GiveBack{this, i});
        return {};
    }
    return code::busy;
}

} // namespace store
