#pragma once

#include "velta/namelist.h"

#include <cstdint>
#include <string>

namespace store {

// Rows of a table as they travel: the cells one after the other in the order of the columns.
struct Rows {
    velta::NameList columns;
    std::uint32_t count = 0;
    std::string cells;
};

} // namespace store
