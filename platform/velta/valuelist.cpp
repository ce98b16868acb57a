#include "velta/valuelist.h"

namespace velta {

const Value& ValueList::getValue(std::string_view name) const {
    static const Value none;
    const Value* value = find(name);
    return value != nullptr ? *value : none;
}

const Value* ValueList::find(std::string_view name) const {
    for (const Cell& cell : cells_)
        if (cell.first == name)
            return &cell.second;
    return nullptr;
}

} // namespace velta
