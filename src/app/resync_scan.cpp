#include "app/resync_scan.h"

#include <array>

#include "app/handlers.h"
#include "trace/trace.h"

namespace {

constexpr int32_t MARK_TTL_MS = 3600000; // one hour: a sweep lost with the process expires anyway
constexpr int32_t BATCH = 100;

struct reread_row {
    int32_t db;
    pattern_text pattern;
    tukredis_handler handler;
};

constexpr reread_row reread_row_of(key_family f) {
    return reread_row{family_decl(f).reread_db, pattern_of(f), handler_of(f)};
}

// Settings first, then the VLAN id, ports, OUIs, the MAC-VLAN table, and the
// load-complete marker last, so that its copy in database 0 is written only
// once everything before it has been applied.
constexpr auto REREAD = map_families<reread_row>(REREAD_ORDER, reread_row_of);
// What this daemon publishes in database 0 under configuration names.
// "/bridge/vvlan/data/end" is not among them: its copy survives.
constexpr auto SWEPT = map_families<pattern_text>(SWEPT_ORDER, pattern_of);

} // namespace

// Called by the bus library after every connection and subscription. Only
// the codes 0 and 1 run the scan; anything else (compared unsigned, so
// negative codes too) is ignored by design. Results of the bus calls and of
// the handlers are not examined: a key that fails is reported by its handler
// and the scan goes on.
int32_t check_db_validate(unsigned int code) {
    if (code >= 2) {
        return 0;
    }
    TRACE_INFO("check_db_validate start");
    for (const pattern_text &pattern : SWEPT) {
        tukredis_pexpire_key_pattern(DB_STATE, pattern.data(), MARK_TTL_MS, BATCH);
    }
    for (const reread_row &row : REREAD) {
        tukredis_scan_key_pattern(row.db, row.pattern.data(), BATCH, row.handler, 0, 0);
    }
    // SET clears a key's time-to-live, so what still carries one here is
    // exactly what the present configuration no longer produces.
    for (const pattern_text &pattern : SWEPT) {
        tukredis_del_expire_key_pattern(DB_STATE, pattern.data(), BATCH);
    }
    TRACE_INFO("check_db_validate end");
    return 0;
}
