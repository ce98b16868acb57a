#include "store/storage/sharedmarks.h"

#include "store/storage/sqlite.h"
#include "store/storage/sqlwords.h"

#include <algorithm>
#include <vector>

namespace store {

namespace {

constexpr const char* mark = "SHARED";

// Goes through the text and knows in which table and column it is.
class Finder {
public:
    explicit Finder(const std::string& sql)
        : sql_(sql), tokens_(tokensOf(sql).value_or(std::vector<SqlToken>())) {}

    SharedMarks all() {
        SharedMarks marks{sql_, {}};
        for (at_ = 0; at_ < tokens_.size(); ++at_) {
            if (isColumnsFirst()) {
                column_ = nameAt(at_);
            } else if (depth_ == 1 && isMark()) {
                checkPlace();
                marks.columns.emplace(table_, column_);
                const auto begin = marks.sql.begin();
                std::fill(begin + offset(tokens_[at_].begin), begin + offset(tokens_[at_].end), ' ');
            }
            follow();
        }
        return marks;
    }

private:
    static std::string::difference_type offset(std::size_t position) {
        return static_cast<std::string::difference_type>(position);
    }

    bool isSign(std::size_t at, char sign) const {
        return at < tokens_.size() && tokens_[at].kind == SqlToken::Kind::Sign &&
               sql_[tokens_[at].begin] == sign;
    }
    // Whether it is the first piece of a column's definition: its name, be it the word of the mark.
    bool isColumnsFirst() const {
        return depth_ == 1 && at_ > 0 && (isSign(at_ - 1, '(') || isSign(at_ - 1, ','));
    }
    bool isMark() const {
        const SqlToken& token = tokens_[at_];
        return token.kind == SqlToken::Kind::Word &&
               sameName(sql_.substr(token.begin, token.end - token.begin), mark);
    }
    void checkPlace() const {
        if (!isSign(at_ + 1, ',') && !isSign(at_ + 1, ')'))
            throw StorageError("table " + table_ + ", column " + column_ + ": " + mark +
                               " stands behind all else that is said of a column");
    }
    std::string nameAt(std::size_t at) const {
        const SqlToken& token = tokens_[at];
        const std::size_t quote = token.kind == SqlToken::Kind::Quoted ? 1 : 0;
        const std::size_t size = token.end - token.begin;
        return size > 2 * quote ? sql_.substr(token.begin + quote, size - 2 * quote) : std::string();
    }
    void follow() {
        if (isSign(at_, '(')) {
            if (depth_++ == 0 && at_ > 0)
                table_ = nameAt(at_ - 1);
        } else if (isSign(at_, ')') && depth_ > 0) {
            --depth_;
        }
    }

    const std::string& sql_;
    const std::vector<SqlToken> tokens_;
    std::size_t at_ = 0;
    unsigned depth_ = 0; // of brackets: 1 where a table's columns are
    std::string table_;
    std::string column_;
};

} // namespace

SharedMarks sharedMarksIn(const std::string& sql) {
    return Finder(sql).all();
}

} // namespace store
