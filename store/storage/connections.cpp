#include "store/storage/connections.h"

#include "store/log.h"
#include "store/storage/databaseformat.h"
#include "store/storage/logcheck.h"

namespace store {

namespace {

constexpr int openFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;

} // namespace

Connections::Connections(const Schema& schema, DatabaseFile& file, std::int64_t limitOfTable)
    : schema_(schema),
      file_(file),
      writer_(file_.path(), file_.inMemory() ? openFlags | SQLITE_OPEN_CREATE : openFlags,
              Connection::Begin::Closed),
      lastCommit_(file_.path(), openFlags, Connection::Begin::Closed),
      snapshots_(file_, schema_),
      checkpoints_(writer_, lastCommit_),
      sizes_(limitOfTable) {
    (void)open(); // if the log could not be moved, that was logged
    if (!file_.inMemory())
        return;
    snapshots_.connectAll();
    file_.dropName();
}

bool Connections::open() {
    file_.checkCompanions();
    const std::optional<LogLoss> loss = lossIn(file_.logPath());
    writer_.open();
    prepareDatabase(writer_, schema_, file_.name());
    lastCommit_.open();
    lastCommit_.touchFiles();
    file_.recordCompanions();
    checkpoints_.watch();
    sizes_.count(lastCommit_, schema_);
    ++timesOpened_;
    if (loss)
        log::error("database " + file_.name() + ": " + loss->text());
    // Remnants in the log's file must not be taken for damage at the next start.
    const int emptied = checkpoints_.empty();
    if (emptied != SQLITE_OK && emptied != SQLITE_BUSY) // BUSY: another program is reading it
        log::error("database " + file_.name() +
                   ": the log can't be brought into it: " + lastCommit_.textOf(emptied));
    return emptied == SQLITE_OK;
}

void Connections::close() {
    snapshots_.closeAll();
    lastCommit_.close();
    if (writer_.isOpen())
        leaveLogOnClose(writer_, true);
    writer_.close();
}

} // namespace store
