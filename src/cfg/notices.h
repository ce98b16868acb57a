#pragma once

#include "velta/namelist.h"

#include <cstddef>

namespace orv::cfg {

// The names of changed tables that wait to be delivered, in order of arrival and each as often as it was
// notified, unless that is very often. Bounded, whatever the other end sends.
class Notices {
public:
    // False where there are more than a store can have.
    [[nodiscard]] bool keep(const velta::NameList& tables);
    bool empty() const { return tables_.empty(); }
    // Gives them out and starts afresh.
    velta::NameList take();

private:
    velta::NameList tables_;
    std::size_t bytes_ = 0;
};

} // namespace orv::cfg
