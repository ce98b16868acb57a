#include "store/storage/sharing.h"

#include <algorithm>

namespace store {

bool SharedChange::changesNothing() const {
    return std::none_of(rows.begin(), rows.end(), [](const Row& row) {
        return row.isNew || !row.after || *row.after != row.row.cells;
    });
}

} // namespace store
