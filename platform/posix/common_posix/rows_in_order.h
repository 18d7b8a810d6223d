/// Tables whose rows are looked up by an enumeration.
#ifndef PROCMGR_PLATFORM_POSIX_COMMON_POSIX_ROWS_IN_ORDER_H
#define PROCMGR_PLATFORM_POSIX_COMMON_POSIX_ROWS_IN_ORDER_H

#include <array>
#include <cstddef>

namespace ProcMgr {

/// True when the value that the member `key` of each row has is the row's index. For a static_assert beside the table.
template <typename Row, typename Key, std::size_t size>
constexpr bool RowsAreInOrder(const std::array<Row, size>& rows, Key Row::*key) {
    for (std::size_t at = 0; at < size; ++at) {
        if (rows[at].*key != static_cast<Key>(at)) {
            return false;
        }
    }
    return true;
}

}  // namespace ProcMgr

#endif
