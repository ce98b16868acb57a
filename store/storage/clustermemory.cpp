#include "store/storage/clustermemory.h"

namespace store {

using Result = ClusterMemory::Result;

ClusterMemory::ClusterMemory(Connection& connection)
    : connection_(connection),
      isThere_(connection, "SELECT count(*) FROM sqlite_schema WHERE name = '_ClusterState'"),
      makeRows_(connection,
                "CREATE TABLE IF NOT EXISTS _ClusterRows (TableName TEXT NOT NULL, Id INTEGER NOT NULL,"
                " Uuid TEXT NOT NULL, PRIMARY KEY (TableName, Id), UNIQUE (TableName, Uuid)) WITHOUT ROWID"),
      makeState_(connection,
                 "CREATE TABLE IF NOT EXISTS _ClusterState (Device TEXT NOT NULL, Cluster TEXT NOT NULL,"
                 " LastTransaction TEXT NOT NULL, LogIndex INTEGER NOT NULL)"),
      begin_(connection, "INSERT OR IGNORE INTO _ClusterState"
                         " (_rowid_, Device, Cluster, LastTransaction, LogIndex) VALUES (1, ?1, '', '', 0)"),
      dropRows_(connection, "DROP TABLE IF EXISTS _ClusterRows"),
      dropState_(connection, "DROP TABLE IF EXISTS _ClusterState"),
      read_(connection,
            "SELECT Device, Cluster, LastTransaction, LogIndex FROM _ClusterState WHERE _rowid_ = 1"),
      follow_(connection, "UPDATE _ClusterState SET Cluster = ?1, LastTransaction = ?2, LogIndex = ?3"
                          " WHERE _rowid_ = 1"),
      uuidOf_(connection, "SELECT Uuid FROM _ClusterRows WHERE TableName = ?1 AND Id = ?2"),
      idOf_(connection, "SELECT Id FROM _ClusterRows WHERE TableName = ?1 AND Uuid = ?2"),
      uuidsOf_(connection, "SELECT Id, Uuid FROM _ClusterRows WHERE TableName = ?1"),
      remember_(connection, "INSERT OR REPLACE INTO _ClusterRows (TableName, Id, Uuid) VALUES (?1, ?2, ?3)"),
      forget_(connection, "DELETE FROM _ClusterRows WHERE TableName = ?1 AND Id = ?2") {}

Result ClusterMemory::isThere(bool& there) {
    Statement::Run run(isThere_);
    const int step = run.step();
    there = run.number(0) != 0;
    return connection_.resultOf(step);
}

Result ClusterMemory::read(std::string& device, SharedPosition& position) {
    Statement::Run run(read_);
    const int step = run.step();
    device = run.text(0);
    position = {std::string(run.text(1)), std::string(run.text(2)),
                static_cast<std::uint64_t>(run.number(3))};
    return connection_.resultOf(step);
}

Result ClusterMemory::uuidOf(const std::string& table, std::int64_t id, std::string& uuid) {
    Statement::Run run(uuidOf_);
    run.bind(1, table);
    run.bind(2, id);
    const int step = run.step();
    uuid = run.text(0);
    return connection_.resultOf(step);
}

Result ClusterMemory::idOf(const std::string& table, const std::string& uuid,
                           std::optional<std::int64_t>& id) {
    Statement::Run run(idOf_);
    run.bind(1, table);
    run.bind(2, uuid);
    const int step = run.step();
    id = step == SQLITE_ROW ? std::optional<std::int64_t>(run.number(0)) : std::nullopt;
    return connection_.resultOf(step);
}

Result ClusterMemory::uuidsOf(const std::string& table, std::map<std::int64_t, std::string>& uuids) {
    Statement::Run run(uuidsOf_);
    run.bind(1, table);
    int step = run.step();
    for (; step == SQLITE_ROW; step = run.step())
        uuids.emplace(run.number(0), run.text(1));
    return connection_.resultOf(step);
}

} // namespace store
