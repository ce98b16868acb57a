#include "store/server/transactionwork.h"
#include "support/rawclient.h"
#include "unit/storage/sharedtables.h"

#include <gmock/gmock.h>

namespace {

using ask::RequestKind;
using store::TransactionWork;

struct Reading {
    const char* name;
    RequestKind kind;
    const char* table;
    const char* keyColumn;
    const char* key;
    const char* noted; // "", "whole", or the Ids
};

class ReadingTest : public testing::TestWithParam<Reading> {};

TEST_P(ReadingTest, IsNotedAsWhatItReads) {
    const store::Schema schema = schemaOf(sharedTables);
    ask::Request request = ask::ofTable(GetParam().kind, GetParam().table);
    request.keyColumn = GetParam().keyColumn;
    request.key = GetParam().key;
    TransactionWork work;

    work.note(schema, request);

    std::string noted;
    for (const auto& [table, reads] : work.reads().tables()) {
        noted += reads.whole ? "whole" : "";
        for (const std::int64_t id : reads.ids)
            noted += std::to_string(id);
    }
    EXPECT_EQ(noted, GetParam().noted);
}

const Reading readings[] = {
    {"Table", RequestKind::ReadTable, "Plans", "", "", "whole"},
    {"RowByItsPlace", RequestKind::ReadRow, "Plans", "", "", "whole"},
    {"RowByItsId", RequestKind::ReadKey, "Plans", "Id", "4", "4"},
    {"RowByANonsensicalId", RequestKind::ReadKey, "Plans", "Id", "x", ""},
    {"RowByItsName", RequestKind::ReadKey, "Plans", "Name", "4", "whole"},
    {"UpdateByTheId", RequestKind::Update, "Plans", "Id", "4", "4"},
    {"UpdateByTheName", RequestKind::Update, "Plans", "Name", "a", "whole"},
    {"RemoveByTheName", RequestKind::Remove, "Plans", "Name", "a", "whole"},
    {"Insert", RequestKind::Insert, "Plans", "", "", ""},
    {"LocalTable", RequestKind::ReadTable, "Other", "", "", ""},
    {"UnknownTable", RequestKind::ReadTable, "Typo", "", "", ""},
    {"Columns", RequestKind::Columns, "Plans", "", "", ""},
};

INSTANTIATE_TEST_SUITE_P(TransactionWork, ReadingTest, testing::ValuesIn(readings),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(TransactionWork, UsesTheTablesThatItReadsAndWrites) {
    TransactionWork work;
    work.note(schemaOf(sharedTables), ask::readTable("Other"));
    work.keep(ask::insert("Plans", {}), 4);
    EXPECT_TRUE(work.usesAny({"Globals", "Other"}));
    EXPECT_TRUE(work.usesAny({"Plans"}));
    EXPECT_FALSE(work.usesAny({"Globals"}));
}

TEST(TransactionWork, KeepsTheIdThatANewRowGot) {
    TransactionWork work;
    work.keep(ask::insert("Plans", {}), 4);
    EXPECT_EQ(work.writes().at(0).values.getValue("Id").getInteger(), 4);
}

TEST(TransactionWork, OfTooManyWritesNoneIsKept) {
    TransactionWork work;
    const ask::Request large = ask::insert("Plans", cell("Name", textValue(std::string(4096, 'x'))));
    for (int i = 0; i < 200; ++i)
        work.keep(large, 4);
    EXPECT_FALSE(work.tooManyWrites());
    for (int i = 0; i < 100; ++i)
        work.keep(large, 4);
    EXPECT_TRUE(work.tooManyWrites());
    EXPECT_THAT(work.writes(), testing::IsEmpty());
}

} // namespace
