#include "store/storage/snapshots.h"

#include <algorithm>

namespace store {

using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

Snapshot::Snapshot(const std::string& path, const Schema& schema)
    : connection_(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX),
      reader_(schema, connection_.handle()),
      begin_(connection_.handle(), "BEGIN"),
      end_(connection_.handle(), "COMMIT") {
    connection_.execute("PRAGMA cache_size = -128"); // KiB; each page is read once
}

EResultCode Snapshot::begin() {
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
    snapshot->end();
    owner->places_[place].taken = false;
}

void Snapshots::connectAll() {
    for (Place& place : places_) {
        place.snapshot = std::make_unique<Snapshot>(path_, schema_);
        place.snapshot->connection().touchFiles();
    }
}

bool Snapshots::free() const {
    return std::any_of(places_.begin(), places_.end(), [](const Place& place) { return !place.taken; });
}

EResultCode Snapshots::take(Lease& lease) {
    for (std::size_t i = 0; i < places_.size(); ++i) {
        Place& place = places_[i];
        if (place.taken)
            continue;
        try {
            if (!place.snapshot)
                place.snapshot = std::make_unique<Snapshot>(path_, schema_);
        } catch (const StorageError& error) {
            return {code::storageFailed, error.what()};
        }
        if (EResultCode result = place.snapshot->begin(); !result.ok())
            return result;
        place.taken = true;
        lease = Lease(place.snapshot.get(), GiveBack{this, i});
        return {};
    }
    return code::busy;
}

} // namespace store
