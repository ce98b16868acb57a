#pragma once

#include <functional>
#include <memory>

// A disk whose syncs or writes of the log fail when a test says so. While it lives, every database that is
// opened lies on it.
class ShakyDisk {
public:
    ShakyDisk();
    ~ShakyDisk();
    ShakyDisk(const ShakyDisk&) = delete;
    ShakyDisk& operator=(const ShakyDisk&) = delete;

    // So many of the next ones fail.
    void failSyncs(int count);
    void failWrites(int count);
    // Of the database itself: what a checkpoint does.
    void failDatabaseSyncs(int count);
    // What happens while the log is synced the next time.
    void duringNextSync(std::function<void()> accident);

    struct Faults {
        int syncs = 0;
        int writes = 0;
        int databaseSyncs = 0;
        std::function<void()> duringSync;
    };

private:
    struct Implementation;
    std::unique_ptr<Implementation> implementation_;
};
