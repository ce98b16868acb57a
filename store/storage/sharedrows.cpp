#include "store/storage/sharedrows.h"

#include "store/storage/sharedtable.h"
#include "store/storage/updating.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <unistd.h>

namespace store {

namespace code = velta::protocol::code;
using Result = SharedRows::Result;

namespace {

constexpr const char* backUpSuffix = ".before-cluster";

// Makes an empty file with a name of its own beside the database.
Descriptor newFileBeside(const std::string& database, std::string& path) {
    path = database + backUpSuffix;
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    int file = open(path.c_str(), flags, 0600);
    for (int i = 1; file < 0 && errno == EEXIST; ++i) {
        path = database + backUpSuffix + std::to_string(i);
        file = open(path.c_str(), flags, 0600);
    }
    return Descriptor(file);
}

// Whether the file and its name are on the disk.
bool synchronise(const Descriptor& file, const std::string& path) {
    if (fsync(file.get()) != 0)
        return false;
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const Descriptor opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened.get() >= 0 && fsync(opened.get()) == 0;
}

bool sameAs(const SharedPosition& a, const SharedPosition& b) {
    return a.cluster == b.cluster && a.lastTransaction == b.lastTransaction && a.index == b.index;
}

} // namespace

SharedRows::SharedRows(const Schema& schema, const DatabaseFile& file, Connections& connections,
                       TableWriter& writer, ClusterMemory& memory)
    : schema_(schema), file_(file), connections_(connections), writer_(writer), memory_(memory) {}

Result SharedRows::begin(const std::string& device, Memory& memory) {
    const Result result = commitAll([this, &device] {
        for (Statement* const make : {&memory_.makeRows(), &memory_.makeState()})
            if (Result made = write(*make); !made.ok())
                return made;
        Statement::Run run(memory_.begin());
        run.bind(1, device);
        return writer_.writeOther(run);
    });
    if (!result.ok())
        return result;
    timesOpened_ = connections_.timesOpened();
    return memory_.read(memory.device, memory.position);
}

Result SharedRows::forget(bool& didFollow) {
    if (Result result = memory_.isThere(didFollow); !result.ok() || !didFollow)
        return result;
    return commitAll([this] {
        const Result result = write(memory_.dropRows());
        return result.ok() ? write(memory_.dropState()) : result;
    });
}

Result SharedRows::apply(const SharedUpdates& updates, Applied& applied) {
    applied = {};
    Result result;
    try {
        result = applyAll(updates, applied);
    } catch (const std::bad_alloc&) { // nothing throws after the commit
        result = code::outOfMemory;
    }
    writer_.rollBack(); // ends what was not committed
    if (result.ok())
        return result;
    applied = {};
    return result;
}

Result SharedRows::applyAll(const SharedUpdates& updates, Applied& applied) {
    if (Result result = writer_.begin(); !result.ok())
        return result;
    if (timesOpened_ != connections_.timesOpened())
        return {code::storageFailed, "the database was opened anew: it may remember something else"};
    if (Result result = Updating(schema_, writer_, memory_, applied).carryOut(updates); !result.ok())
        return result;
    if (applied.isIncomplete) {
        applied.refused.clear();
        return {};
    }
    SharedPosition position = updates.position;
    if (!applied.refused.empty())
        position.lastTransaction.clear();
    if (Result result = follow(position); !result.ok())
        return result;
    return writer_.commit(applied.changed);
}

Result SharedRows::follow(const SharedPosition& position) {
    std::string device;
    SharedPosition before;
    if (Result result = memory_.read(device, before); !result.ok() || sameAs(before, position))
        return result;
    Statement::Run run(memory_.follow());
    run.bind(1, position.cluster);
    run.bind(2, position.lastTransaction);
    run.bind(3, static_cast<std::int64_t>(position.index));
    return writer_.writeOther(run);
}

Result SharedRows::all(std::vector<SharedRow>& rows) {
    rows.clear();
    bool there = false;
    if (Result result = memory_.isThere(there); !result.ok())
        return result;
    for (std::size_t table = 0; table < schema_.tables().size(); ++table)
        if (schema_.tables()[table].isShared())
            if (Result result = addSharedRows(writer_.reader(), table, there ? &memory_ : nullptr, rows);
                !result.ok())
                return result;
    return {};
}

Result SharedRows::backUp(std::string& path) {
    path.clear();
    if (file_.inMemory())
        return {};
    std::string made;
    const Descriptor file = newFileBeside(file_.path(), made);
    if (file.get() < 0)
        return {code::storageFailed, made + ": " + std::strerror(errno)};
    const Result result = copyInto(made);
    if (result.ok() && synchronise(file, made)) {
        path = made;
        return {};
    }
    const int error = errno;
    (void)unlink(made.c_str()); // it is not whole
    return result.ok() ? Result(code::storageFailed, made + ": " + std::strerror(error)) : result;
}

// SQLite takes an empty file for a new one.
Result SharedRows::copyInto(const std::string& path) {
    Statement statement(connections_.lastCommit(), "VACUUM INTO ?1");
    Statement::Run run(statement);
    run.bind(1, path);
    return connections_.lastCommit().resultOf(run.step());
}

Result SharedRows::commitAll(const std::function<Result()>& writes) {
    Result result = writer_.begin();
    if (result.ok())
        result = writes();
    velta::NameList changed;
    if (result.ok())
        result = writer_.commit(changed);
    writer_.rollBack(); // ends what was not committed
    return result;
}

Result SharedRows::write(Statement& statement) {
    Statement::Run run(statement);
    return writer_.writeOther(run);
}

} // namespace store
