#pragma once

#include <set>
#include <string>
#include <utility>

namespace store {

// Which columns a schema's text marks as shared, by the word SHARED behind a column's definition. SQLite does
// not know the word.
struct SharedMarks {
    std::string sql;                                       // the text without the marks
    std::set<std::pair<std::string, std::string>> columns; // table and column

    // Forgets the mark. False if there is none.
    bool take(const std::string& table, const std::string& column) {
        return columns.erase({table, column}) != 0;
    }
};

// The comments in the text are closed. Throws StorageError for a mark in another place; the error does not
// name the text's origin.
SharedMarks sharedMarksIn(const std::string& sql);

} // namespace store
