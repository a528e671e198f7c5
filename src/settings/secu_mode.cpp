// SPDX-License-Identifier: BSD-3-Clause
#include "settings/secu_mode.h"

#include "bus/bus_write.h"
#include "handler/handler_steps.h"
#include "settings/vvlan_table.h"
#include "wire/keys.h"

// Published only while the voice VLAN is enabled; turning the voice VLAN
// off removes it even when the mode stays configured.
void set_secu_mode_redis() {
    TRACE_INFO("set_secu_mode_redis start");
    const key_buf key = family_key(key_family::secu_mode);
    TRACE_INFO("key=%s", key.c_str());
    TRACE_INFO("secu_mode_en=%d", g_vvlan_table.secu_mode_en);
    if (g_vvlan_table.status == 1 && g_vvlan_table.secu_mode_en == 1) {
        bus_set_int(DB_STATE, key.c_str(), g_vvlan_table.secu_mode_en);
    } else {
        bus_del(DB_STATE, key.c_str());
    }
    TRACE_INFO("set_secu_mode_redis end");
}

// Only the presence of the key counts; its value is never read.
int32_t get_secu_mode_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg)) {
        return *done;
    }
    g_vvlan_table.secu_mode_en = pmsg->cmd == TUKREDIS_CMD_SET ? 1 : 0;
    set_secu_mode_redis();
    TRACE_INFO("get_secu_mode_pmsg_f end");
    return 0;
}
