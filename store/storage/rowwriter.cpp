#include "store/storage/rowwriter.h"

#include "store/storage/cells.h"

namespace store {

void appendRow(Rows& rows, const Table& table, const Statement::Run& run) {
    velta::protocol::Writer writer(rows.cells);
    for (std::size_t i = 0; i < table.columns.size(); ++i)
        writeCell(writer, table.columns[i].type, run, static_cast<int>(i));
    ++rows.count;
}

} // namespace store
