#include "store/server/databasewatch.h"

#include "store/log.h"

#include <cerrno>
#include <cstring>

namespace store {

DatabaseWatch::DatabaseWatch(velta::net::EventDispatcher& dispatcher, Database& database)
    : dispatcher_(dispatcher), database_(database) {
    followFiles();
    if (watch_.descriptor() >= 0)
        dispatcher_.add(watch_.descriptor(), velta::net::EventDispatcher::Readable,
                        [this](unsigned) { look(); });
}

DatabaseWatch::~DatabaseWatch() {
    dispatcher_.remove(watch_.descriptor());
}

void DatabaseWatch::followFiles() {
    if (timesOpened_ == database_.timesOpened())
        return;
    timesOpened_ = database_.timesOpened();
    bool gone = false;
    for (const std::string& path : database_.watchedFiles()) {
        if (watch_.add(path))
            continue;
        gone = gone || errno == ENOENT;
        if (errno == ENOENT || complained_)
            continue;
        complained_ = true;
        log::warning("nobody will be told at once if " + path + " is removed: " + std::strerror(errno));
    }
    if (gone) // it was removed before the watch began
        database_.filesTouched();
}

void DatabaseWatch::look() {
    if (watch_.takeChanges())
        database_.filesTouched();
}

} // namespace store
