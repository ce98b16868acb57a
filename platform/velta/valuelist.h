#pragma once

#include "velta/value.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velta {

// One row: its cells by column name, in the order in which they were added.
class ValueList {
public:
    using Cell = std::pair<std::string, Value>;
    using const_iterator = std::vector<Cell>::const_iterator;

    void add(const std::string& name, const Value& value) { cells_.emplace_back(name, value); }

    // The first cell of that name; a missing column gives a value of type none. The reference holds until
    // the list changes.
    const Value& getValue(std::string_view name) const;
    bool hasValue(std::string_view name) const { return find(name) != nullptr; }

    void clear() { cells_.clear(); }
    void reserve(std::size_t cells) { cells_.reserve(cells); }
    std::size_t size() const { return cells_.size(); }
    bool empty() const { return cells_.empty(); }
    const_iterator begin() const { return cells_.begin(); }
    const_iterator end() const { return cells_.end(); }

    bool operator==(const ValueList& other) const { return cells_ == other.cells_; }
    bool operator!=(const ValueList& other) const { return cells_ != other.cells_; }

private:
    const Value* find(std::string_view name) const;

    std::vector<Cell> cells_;
};

} // namespace velta
