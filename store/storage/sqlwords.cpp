#include "store/storage/sqlwords.h"

#include <algorithm>

#include <strings.h>

namespace store {

namespace {

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '$' || static_cast<unsigned char>(c) >= 0x80;
}

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The character that closes a text or a name which that character opens; 0 if it opens none.
char closingQuote(char opening) {
    if (opening == '[')
        return ']';
    return opening == '\'' || opening == '"' || opening == '`' ? opening : '\0';
}

// The position after the next `end`, or the text's size if there is none.
std::size_t behind(const std::string& sql, const std::string& end, std::size_t from) {
    const std::size_t found = sql.find(end, from);
    return found == std::string::npos ? sql.size() : found + end.size();
}

std::size_t behindWord(const std::string& sql, std::size_t from) {
    const auto begin = sql.begin() + static_cast<std::string::difference_type>(from);
    return static_cast<std::size_t>(std::find_if_not(begin, sql.end(), isWordCharacter) - sql.begin());
}

} // namespace

bool sameName(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::optional<std::vector<SqlToken>> tokensOf(const std::string& sql) {
    std::vector<SqlToken> tokens;
    const auto add = [&tokens](SqlToken::Kind kind, std::size_t begin, std::size_t end) {
        tokens.push_back({kind, begin, end});
        return end;
    };
    for (std::size_t at = 0; at < sql.size();) {
        if (sql.compare(at, 2, "--") == 0) {
            at = behind(sql, "\n", at);
        } else if (sql.compare(at, 2, "/*") == 0) {
            if (sql.find("*/", at + 2) == std::string::npos)
                return std::nullopt;
            at = behind(sql, "*/", at + 2);
        } else if (const char quote = closingQuote(sql[at]); quote != '\0') {
            // a doubled one closes and opens again
            at = add(SqlToken::Kind::Quoted, at, behind(sql, std::string(1, quote), at + 1));
        } else if (const std::size_t end = behindWord(sql, at); end != at) {
            at = add(SqlToken::Kind::Word, at, end);
        } else if (isSpace(sql[at])) {
            ++at;
        } else {
            at = add(SqlToken::Kind::Sign, at, at + 1);
        }
    }
    return tokens;
}

std::optional<std::vector<std::string>> wordsOf(const std::string& sql) {
    const std::optional<std::vector<SqlToken>> tokens = tokensOf(sql);
    if (!tokens)
        return std::nullopt;
    std::vector<std::string> words;
    for (const SqlToken& token : *tokens)
        if (token.kind == SqlToken::Kind::Word)
            words.push_back(sql.substr(token.begin, token.end - token.begin));
    return words;
}

} // namespace store
