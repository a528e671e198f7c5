#include "bus/check_db_validate.h"

#include <array>

#include "autoport/port_oper.h"
#include "bus/bus_write.h"
#include "bus/data_end.h"
#include "oui/mvlan_table.h"
#include "oui/oui_oper.h"
#include "settings/age_timer.h"
#include "settings/cos_dscp.h"
#include "settings/secu_mode.h"
#include "settings/vid.h"
#include "trace/trace.h"
#include "tukredis.h"

namespace {

constexpr int32_t MARK_TTL_MS = 3600000; // one hour: a sweep lost with the process expires anyway
constexpr int32_t BATCH = 100;

// What this daemon publishes in database 0 and therefore marks and sweeps.
// "/bridge/vvlan/data/end" is not among them: its copy survives.
constexpr std::array<const char *, 6> PUBLISHED = {
    "/bridge/vvlan/cos_dscp/*", "/bridge/vvlan/secu_mode/*", "/bridge/vvlan/age_timer/*",
    "/bridge/vvlan/vid/*",      "/bridge/vvlan/port_oper/*", "/bridge/vvlan/oui_oper/*",
};

struct reread_row {
    const char *pattern;
    tukredis_handler handler;
};

// Settings first, then the VLAN id, ports, OUIs, the MAC-VLAN table, and the
// load-complete marker last, so that its copy in database 0 is written only
// once everything before it has been applied. The MAC-VLAN table is read
// from database 1 here although it is followed in database 0: kept so.
constexpr std::array<reread_row, 8> REREAD = {{
    {"/bridge/vvlan/cos_dscp/*", get_cos_dscp_pmsg_f},
    {"/bridge/vvlan/secu_mode/*", get_secu_mode_pmsg_f},
    {"/bridge/vvlan/age_timer/*", get_age_timer_pmsg_f},
    {"/bridge/vvlan/vid/*", get_vid_pmsg_f},
    {"/bridge/vvlan/port_oper/*", get_port_oper_pmsg_f},
    {"/bridge/vvlan/oui_oper/*", get_oui_oper_pmsg_f},
    {"/bridge/mac_vlan/table/*", get_mac_vlan_pmsg_f},
    {"/bridge/vvlan/data/end", get_data_end_pmsg_f},
}};

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
    for (const char *pattern : PUBLISHED) {
        tukredis_pexpire_key_pattern(BUS_DB_STATE, pattern, MARK_TTL_MS, BATCH);
    }
    for (const reread_row &row : REREAD) {
        tukredis_scan_key_pattern(BUS_DB_CONFIG, row.pattern, BATCH, row.handler, 0, 0);
    }
    // SET clears a key's time-to-live, so what still carries one here is
    // exactly what the present configuration no longer produces.
    for (const char *pattern : PUBLISHED) {
        tukredis_del_expire_key_pattern(BUS_DB_STATE, pattern, BATCH);
    }
    TRACE_INFO("check_db_validate end");
    return 0;
}
