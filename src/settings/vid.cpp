// SPDX-License-Identifier: BSD-3-Clause
#include "settings/vid.h"

#include "autoport/aging_thread_control.h"
#include "bus/bus_write.h"
#include "handler/handler_steps.h"
#include "oui/mvlan_table.h"
#include "settings/secu_mode.h"
#include "settings/vvlan_table.h"
#include "wire/key_scan.h"
#include "wire/keys.h"
#include "wire/values.h"

// The published value is the OUI index, not the VLAN id: the id travels only
// in the key name.
void set_vid_redis() {
    const key_buf key = vid_key(g_vvlan_table.vid);
    TRACE_INFO("key=%s", key.c_str());
    if (g_vvlan_table.status == 1) {
        const auto value = pre_entry_idx_codec::encode(g_vvlan_table.oui_idx);
        bus_set_raw(DB_STATE, key.c_str(), value.data(), value.size());
    } else {
        bus_del(DB_STATE, key.c_str());
    }
}

// Every code but 0 and 9 is a delete. The id comes from the key name, for a
// delete too; a tail that is not a number leaves the previous id.
int32_t get_vid_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg)) {
        return *done;
    }
    g_vvlan_table.status = pmsg->cmd == TUKREDIS_CMD_SET ? 1 : 0;
    key_scan scan(pmsg_key(pmsg));
    uint16_t vid = 0;
    if (scan.literal(prefix_of(key_family::vid)) && scan.uint16(&vid)) {
        g_vvlan_table.vid = vid;
    }
    TRACE_INFO("vid=%hu, status=%d", static_cast<unsigned short>(g_vvlan_table.vid),
               g_vvlan_table.status);

    set_secu_mode_redis();
    set_mvlan_oui();
    set_vid_redis();

    if (g_vvlan_table.status == 1) {
        if (g_vvlan_table.is_running == 0) {
            TRACE_INFO("age_thread is not exist");
            TRACE_INFO("VVLAN enable the aging thread");
            if (!aging_thread_start(TRACE_SITE)) {
                return -11;
            }
        }
    } else {
        // Attempted whether or not a thread runs: with none, the join fails
        // and is reported.
        const int rv = aging_thread_stop(TRACE_SITE);
        if (rv != 0) {
            TRACE_INFO("pthread_join failed, error code=%d", rv);
            return -11;
        }
        TRACE_INFO("age_thread has been exit");
        g_vvlan_table.is_running = 0;
    }
    TRACE_INFO("get_vid_pmsg_f end");
    return 0;
}
