#include "bus/subscription_table.h"

#include <cstddef>

#include "autoport/mac_notify.h"
#include "autoport/port_oper.h"
#include "autoport/spec_oui.h"
#include "bus/data_end.h"
#include "oui/mvlan_table.h"
#include "oui/oui_oper.h"
#include "settings/age_timer.h"
#include "settings/cos_dscp.h"
#include "settings/secu_mode.h"
#include "settings/vid.h"
#include "trace/dbg.h"

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

// Rows 9 and 10 are exact keys. The order is the library's dispatch order
// only; re-synchronisation reads the configuration in its own order.
const std::array<tukredis_sub_row, SUB_TABLE_ROWS> g_sub_table = {{
    {1, "/bridge/vvlan/vid/*", get_vid_pmsg_f, 0},
    {1, "/bridge/vvlan/secu_mode/*", get_secu_mode_pmsg_f, 0},
    {1, "/bridge/vvlan/cos_dscp/*", get_cos_dscp_pmsg_f, 0},
    {1, "/bridge/vvlan/age_timer/*", get_age_timer_pmsg_f, 0},
    {1, "/bridge/vvlan/port_oper/*", get_port_oper_pmsg_f, 0},
    {1, "/bridge/vvlan/oui_oper/*", get_oui_oper_pmsg_f, 0},
    {0, "/bri/mac/macTblDyn_vvlan/*", get_mac_notify_pmsg_f, 0},
    {0, "/bridge/vvlan/spec_oui_msg/*", get_spec_oui_pmsg_f, 0},
    {0, "/bridge/mac_vlan/table/*", get_mac_vlan_pmsg_f, 0},
    {1, "/bridge/vvlan/data/end", get_data_end_pmsg_f, 0},
    {0, "debugDovVVlan", dov_vvlan_dbg_pmsg_f, 0},
}};
