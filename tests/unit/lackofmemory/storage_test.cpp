// A database that can't be opened, or a request that finds no memory, costs nothing but itself.

#include "support/temporarydirectory.h"
#include "unit/lackofmemory/expectations.h"
#include "unit/storage/testtables.h"

#include <array>

#include <unistd.h>

namespace {

using failingplaces::expectNoHarm;
using store::Database;
using velta::protocol::EResultCode;
namespace code = velta::protocol::code;

constexpr std::size_t mostWithFiles = 200; // each is synced

// What found no memory says so; nothing else fails.
void must(const EResultCode& result) {
    if (result.code() == code::outOfMemory)
        throw std::bad_alloc();
    if (!result.ok())
        ADD_FAILURE() << result.strerror();
}

class StorageWithoutMemory : public testing::Test {
protected:
    // Without an allocation.
    void removeDatabase() const {
        for (const std::string& file : files_)
            (void)unlink(file.c_str());
    }

    const TemporaryDirectory directory_;
    const std::string path_ = directory_.path("database");
    const std::array<std::string, 3> files_ = {path_, path_ + "-wal", path_ + "-shm"};
};

// So that a program that reads its schema and a file of its own ends with a line where there is no memory.
TEST_F(StorageWithoutMemory, MakesNoDatabase) {
    const auto work = [&] {
        removeDatabase();
        const Database database(schemaOf(store::defaultSchema()), path_);
        return std::to_string(database.schema().tables().size());
    };
    expectNoHarm(work, 100, mostWithFiles);
}

TEST_F(StorageWithoutMemory, OpensNoDatabase) {
    { const Database database(schemaOf(testTables), path_); }
    const auto work = [&] {
        Database database(schemaOf(testTables), path_);
        return std::to_string(tableOf(database, "Globals").size());
    };
    expectNoHarm(work, 100, mostWithFiles);
}

std::string useAll(Database& database) {
    std::uint32_t id = 0;
    velta::NameList changed;
    must(database.transaction().insert("Plans", cell("Name", textValue(std::string(100, 'x'))), id));
    must(database.transaction().insert("Plans", {}, id));
    must(database.transaction().update("Plans", "Id", "1",
                                       cell("Name", textValue("a name, not a short one"))));
    must(database.transaction().remove("Plans", "Name", "none"));
    must(database.transaction().writeSingle("Globals", 0, cell("Enable", switchValue(0))));
    must(database.transaction().commit(changed));
    std::vector<velta::ValueList> rows;
    must(readTable(database, "Plans", Database::View::LastCommit, rows));
    store::Rows row;
    must(database.reader(Database::View::LastCommit).readKey("Globals", "Text", "it's", row));
    return std::to_string(rows.size()) + ' ' + std::to_string(changed.size());
}

TEST_F(StorageWithoutMemory, ServesNoRequest) {
    const auto work = [] {
        Database database(schemaOf(testTables), "");
        return useAll(database);
    };
    expectNoHarm(work, 200);
}

} // namespace
