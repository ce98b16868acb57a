#pragma once

#include "velta/namelist.h"

#include <cstddef>

namespace orv::cfg {

// The names of changed tables that wait to be delivered, in order of arrival. Duplicates are kept, unless
// there are very many. The memory is bounded, whatever the other end sends.
class Notices {
public:
    // False if there are more names than a store can have.
    [[nodiscard]] bool keep(const velta::NameList& tables);
    bool empty() const { return tables_.empty(); }
    // Returns the names and starts with none.
    velta::NameList take();

private:
    velta::NameList tables_;
    std::size_t bytes_ = 0;
};

} // namespace orv::cfg
