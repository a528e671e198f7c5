// SPDX-License-Identifier: BSD-3-Clause
#include "app/subscription_table.h"

#include <cstddef>

#include "app/handlers.h"

// The library reads the rows and the notification records by their fixed
// layout; on the 32-bit target both are 140 bytes.
static_assert(sizeof(void *) != 4 || sizeof(tukredis_sub_row) == 140);
static_assert(sizeof(void *) != 4 || offsetof(tukredis_sub_row, handler) == 132);
static_assert(sizeof(void *) != 4 || offsetof(tukredis_sub_row, reserved) == 136);
static_assert(offsetof(tukredis_sub_row, db) == 0);
static_assert(offsetof(tukredis_sub_row, pattern) == 4);
static_assert(sizeof(void *) != 4 || sizeof(tukredis_pmsg) == 140);
static_assert(offsetof(tukredis_pmsg, db) == 0);
static_assert(offsetof(tukredis_pmsg, key) == 4);
static_assert(offsetof(tukredis_pmsg, cmd) == 132);
static_assert(sizeof(void *) != 4 || offsetof(tukredis_pmsg, reply) == 136);
static_assert(PATTERN_LEN == TUKREDIS_PATTERN_LEN);

namespace {

constexpr tukredis_sub_row sub_row_of(key_family f) {
    tukredis_sub_row row{};
    row.db = static_cast<uint32_t>(family_decl(f).sub_db);
    const pattern_text pattern = pattern_of(f);
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        row.pattern[i] = pattern[i];
    }
    row.handler = handler_of(f).value();
    row.reserved = 0;
    return row;
}

} // namespace

// Static, initialised data: the rows in their declared order (the library's
// dispatch order only; re-synchronisation reads in its own order). Rows 9
// and 10 are exact keys.
constinit const std::array<tukredis_sub_row, SUB_TABLE_ROWS> g_sub_table =
    map_families<tukredis_sub_row>(SUBSCRIPTION_ORDER, sub_row_of);
