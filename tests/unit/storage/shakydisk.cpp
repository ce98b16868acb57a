#include "unit/storage/shakydisk.h"

#include <cstddef>
#include <utility>

#include <sqlite3.h>

namespace {

// SQLite hands out memory for this, and behind it for the real file.
struct ShakyFile {
    sqlite3_file base;
    ShakyDisk::Faults* faults;
    bool isLog;
    sqlite3_file* real;
};

struct Disk {
    sqlite3_vfs vfs{};
    sqlite3_vfs* real = nullptr;
    ShakyDisk::Faults faults;
};

constexpr std::size_t realOffset = (sizeof(ShakyFile) + 15) / 16 * 16;

ShakyFile& shaky(sqlite3_file* file) {
    return *reinterpret_cast<ShakyFile*>(file);
}

sqlite3_file* realOf(sqlite3_file* file) {
    return shaky(file).real;
}

bool fails(int& count) {
    if (count == 0)
        return false;
    --count;
    return true;
}

int closeFile(sqlite3_file* file) {
    return realOf(file)->pMethods->xClose(realOf(file));
}
int readFile(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return realOf(file)->pMethods->xRead(realOf(file), bytes, size, offset);
}
int writeToFile(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    if (shaky(file).isLog && fails(shaky(file).faults->writes))
        return SQLITE_IOERR_WRITE;
    return realOf(file)->pMethods->xWrite(realOf(file), bytes, size, offset);
}
int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
    return realOf(file)->pMethods->xTruncate(realOf(file), size);
}
int syncFile(sqlite3_file* file, int flags) {
    if (shaky(file).isLog)
        if (const auto accident = std::exchange(shaky(file).faults->duringSync, nullptr))
            accident();
    if (fails(shaky(file).isLog ? shaky(file).faults->syncs : shaky(file).faults->databaseSyncs))
        return SQLITE_IOERR_FSYNC;
    return realOf(file)->pMethods->xSync(realOf(file), flags);
}
int sizeOfFile(sqlite3_file* file, sqlite3_int64* size) {
    return realOf(file)->pMethods->xFileSize(realOf(file), size);
}
int lockFile(sqlite3_file* file, int level) {
    return realOf(file)->pMethods->xLock(realOf(file), level);
}
int unlockFile(sqlite3_file* file, int level) {
    return realOf(file)->pMethods->xUnlock(realOf(file), level);
}
int checkLock(sqlite3_file* file, int* result) {
    return realOf(file)->pMethods->xCheckReservedLock(realOf(file), result);
}
int controlFile(sqlite3_file* file, int operation, void* argument) {
    return realOf(file)->pMethods->xFileControl(realOf(file), operation, argument);
}
int sectorSize(sqlite3_file* file) {
    return realOf(file)->pMethods->xSectorSize(realOf(file));
}
int characteristics(sqlite3_file* file) {
    return realOf(file)->pMethods->xDeviceCharacteristics(realOf(file));
}
int mapShared(sqlite3_file* file, int page, int size, int extend, void volatile** memory) {
    return realOf(file)->pMethods->xShmMap(realOf(file), page, size, extend, memory);
}
int lockShared(sqlite3_file* file, int offset, int count, int flags) {
    return realOf(file)->pMethods->xShmLock(realOf(file), offset, count, flags);
}
void barrier(sqlite3_file* file) {
    realOf(file)->pMethods->xShmBarrier(realOf(file));
}
int unmapShared(sqlite3_file* file, int remove) {
    return realOf(file)->pMethods->xShmUnmap(realOf(file), remove);
}

sqlite3_io_methods makeMethods() {
    sqlite3_io_methods methods{};
    methods.iVersion = 2;
    methods.xClose = closeFile;
    methods.xRead = readFile;
    methods.xWrite = writeToFile;
    methods.xTruncate = truncateFile;
    methods.xSync = syncFile;
    methods.xFileSize = sizeOfFile;
    methods.xLock = lockFile;
    methods.xUnlock = unlockFile;
    methods.xCheckReservedLock = checkLock;
    methods.xFileControl = controlFile;
    methods.xSectorSize = sectorSize;
    methods.xDeviceCharacteristics = characteristics;
    methods.xShmMap = mapShared;
    methods.xShmLock = lockShared;
    methods.xShmBarrier = barrier;
    methods.xShmUnmap = unmapShared;
    return methods;
}

const sqlite3_io_methods methods = makeMethods();

int openFile(sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* flagsOut) {
    auto& disk = *static_cast<Disk*>(vfs->pAppData);
    ShakyFile& opened = shaky(file);
    opened.faults = &disk.faults;
    opened.isLog = (flags & SQLITE_OPEN_WAL) != 0;
    opened.real = reinterpret_cast<sqlite3_file*>(reinterpret_cast<char*>(file) + realOffset);
    const int result = disk.real->xOpen(disk.real, name, opened.real, flags, flagsOut);
    opened.base.pMethods = opened.real->pMethods != nullptr ? &methods : nullptr;
    return result;
}

} // namespace

struct ShakyDisk::Implementation {
    Disk disk;
};

ShakyDisk::ShakyDisk() : implementation_(std::make_unique<Implementation>()) {
    Disk& disk = implementation_->disk;
    disk.real = sqlite3_vfs_find(nullptr);
    disk.vfs = *disk.real; // all but the opening of files is the real one's
    disk.vfs.pNext = nullptr;
    disk.vfs.zName = "shaky";
    disk.vfs.szOsFile = static_cast<int>(realOffset) + disk.real->szOsFile;
    disk.vfs.pAppData = &disk;
    disk.vfs.xOpen = openFile;
    disk.vfs.xDelete = [](sqlite3_vfs* vfs, const char* name, int sync) {
        sqlite3_vfs* const real = static_cast<Disk*>(vfs->pAppData)->real;
        return real->xDelete(real, name, sync);
    };
    disk.vfs.xAccess = [](sqlite3_vfs* vfs, const char* name, int flags, int* result) {
        sqlite3_vfs* const real = static_cast<Disk*>(vfs->pAppData)->real;
        return real->xAccess(real, name, flags, result);
    };
    disk.vfs.xFullPathname = [](sqlite3_vfs* vfs, const char* name, int size, char* out) {
        sqlite3_vfs* const real = static_cast<Disk*>(vfs->pAppData)->real;
        return real->xFullPathname(real, name, size, out);
    };
    sqlite3_vfs_register(&disk.vfs, 1);
}

ShakyDisk::~ShakyDisk() {
    sqlite3_vfs_unregister(&implementation_->disk.vfs);
    sqlite3_vfs_register(implementation_->disk.real, 1);
}

void ShakyDisk::failSyncs(int count) {
    implementation_->disk.faults.syncs = count;
}
void ShakyDisk::failWrites(int count) {
    implementation_->disk.faults.writes = count;
}
void ShakyDisk::failDatabaseSyncs(int count) {
    implementation_->disk.faults.databaseSyncs = count;
}
void ShakyDisk::duringNextSync(std::function<void()> accident) {
    implementation_->disk.faults.duringSync = std::move(accident);
}
