#pragma once

#include "velta/namelist.h"
#include "velta/protocol/message.h"
#include "velta/valuelist.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orv::cfg {

// The rows of a table as they were at one moment, kept in the form in which they came over the wire: a row
// costs its bytes and a position, and becomes values only when it is asked for.
class Snapshot {
public:
    // Null, or why the piece does not fit to those before it. The snapshot must not be used any more then.
    [[nodiscard]] const char* append(const velta::protocol::RowsPiece& piece);

    std::size_t rows() const { return rowBegins_.size(); }
    // The cells of an existing row, or of the named columns of it; no name stands for all.
    void row(std::size_t index, const velta::NameList& columns, velta::ValueList& values) const;

private:
    const char* faultOf(const velta::protocol::RowsPiece& piece) const;
    std::size_t bytesWith(const velta::protocol::RowsPiece& piece) const;

    bool begun_ = false; // the first piece announced what follows
    std::uint32_t totalRows_ = 0;
    velta::NameList columns_;
    std::string cells_;
    std::vector<std::size_t> rowBegins_; // positions in the cells
};

} // namespace orv::cfg
