// SPDX-License-Identifier: BSD-3-Clause
#include "app/resync_scan.h"

#include "app/subscription_table.h"
#include "trace/trace.h"
#include "wire/key_families.h"

namespace {

constexpr int32_t MARK_TTL_MS = 3600000; // one hour: a sweep lost with the process expires anyway
constexpr int32_t BATCH = 100;

// Every family the scan reads or sweeps has a subscription row, and the row
// holds its pattern and handler: the scan works from row indexes made at
// compile time, so the patterns stand once in the daemon, in g_sub_table.
constexpr int row_of(key_family f) {
    return family_decl(f).sub_row;
}
constexpr int32_t reread_db_of(key_family f) {
    return family_decl(f).reread_db;
}
constexpr auto REREAD_ROWS = map_families<int>(REREAD_ORDER, row_of);
constexpr auto REREAD_DBS = map_families<int32_t>(REREAD_ORDER, reread_db_of);
constexpr auto SWEPT_ROWS = map_families<int>(SWEPT_ORDER, row_of);

template <std::size_t N>
constexpr bool all_subscribed(const std::array<int, N> &rows) {
    for (int row : rows) {
        if (row == NO_ROW) {
            return false;
        }
    }
    return true;
}
static_assert(all_subscribed(REREAD_ROWS) && all_subscribed(SWEPT_ROWS));
static_assert(
    [] {
        for (std::size_t i = 0; i < REREAD_ORDER.size(); ++i) {
            if (SUBSCRIPTION_ORDER[static_cast<std::size_t>(REREAD_ROWS[i])] != REREAD_ORDER[i]) {
                return false;
            }
        }
        return true;
    }(),
    "a family is re-read through its own row, so through its own handler");

const tukredis_sub_row &row(int index) {
    return g_sub_table[static_cast<std::size_t>(index)];
}

} // namespace

// Called by the bus library after every connection and subscription. Only
// the codes 0 and 1 run the scan; anything else (compared unsigned, so
// negative codes too) is ignored by design. Results of the bus calls and of
// the handlers are not examined: a key that fails is reported by its handler
// and the scan goes on.
//
// The re-read goes settings first, then the VLAN id, ports, OUIs, the
// MAC-VLAN table (from database 1, although it is followed in database 0),
// and the load-complete marker last, so that its copy in database 0 is
// written only once everything before it has been applied. What is marked
// and swept is what the daemon publishes in database 0 under configuration
// names; "/bridge/vvlan/data/end" is not among them, so its copy survives.
int32_t check_db_validate(unsigned int code) {
    if (code >= 2) {
        return 0;
    }
    TRACE_INFO("check_db_validate start");
    for (int swept : SWEPT_ROWS) {
        tukredis_pexpire_key_pattern(DB_STATE, row(swept).pattern, MARK_TTL_MS, BATCH);
    }
    for (std::size_t i = 0; i < REREAD_ROWS.size(); ++i) {
        const tukredis_sub_row &r = row(REREAD_ROWS[i]);
        tukredis_scan_key_pattern(REREAD_DBS[i], r.pattern, BATCH, r.handler, 0, 0);
    }
    // SET clears a key's time-to-live, so what still carries one here is
    // exactly what the present configuration no longer produces.
    for (int swept : SWEPT_ROWS) {
        tukredis_del_expire_key_pattern(DB_STATE, row(swept).pattern, BATCH);
    }
    TRACE_INFO("check_db_validate end");
    return 0;
}
