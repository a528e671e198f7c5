#include "settings/vid.h"

#include <array>

#include "bus/bus_write.h"
#include "bus/byte_order.h"
#include "bus/key_buf.h"
#include "bus/key_scan.h"
#include "oui/mvlan_table.h"
#include "settings/secu_mode.h"
#include "settings/timer_thread.h"
#include "settings/vvlan_table.h"
#include "trace/trace.h"

namespace {
constexpr std::string_view VID_PREFIX = "/bridge/vvlan/vid/";
} // namespace

// Re-announces the MAC-VLAN OUI messages of filled entries for the voice VLAN
// and withdraws the others. Disabling only lowers the flags: no message is
// withdrawn then, as it always has been.
void set_mvlan_oui() {
    TRACE_INFO("set_mvlan_oui start");
    if (g_vvlan_table.status == 0) {
        for (mvlan_entry &entry : g_mvlan_table) {
            entry.oui_flag = 0;
        }
        return;
    }
    for (std::size_t i = 0; i < g_mvlan_table.size(); ++i) {
        mvlan_entry &entry = g_mvlan_table[i];
        if (entry.oui_fill == 0) {
            continue;
        }
        TRACE_INFO("g_mvlan_table %d entry fill the vvlan oui", static_cast<int>(i));
        if (entry.mvlan_vid == g_vvlan_table.vid) {
            set_mvlan_redis(entry.oui_idx, 1);
            entry.oui_flag = 1;
        } else {
            TRACE_INFO("This mvlan entry vid is not fill");
            set_mvlan_redis(entry.oui_idx, 0);
        }
    }
    TRACE_INFO("set_mvlan_oui end");
}

// The published value is the OUI index, not the VLAN id: the id travels only
// in the key name.
void set_vid_redis() {
    const key_buf key =
        key_printf("%s%hu", "/bridge/vvlan/vid/", static_cast<unsigned short>(g_vvlan_table.vid));
    TRACE_INFO("key=%s", key.c_str());
    if (g_vvlan_table.status == 1) {
        std::array<uint8_t, 2> value{};
        be16_put(value.data(), g_vvlan_table.oui_idx);
        bus_set_raw(BUS_DB_STATE, key.c_str(), value.data(), value.size());
    } else {
        bus_del(BUS_DB_STATE, key.c_str());
    }
}

// Every code but 0 and 9 is a delete. The id comes from the key name, for a
// delete too; a tail that is not a number leaves the previous id.
int32_t get_vid_pmsg_f(tukredis_pmsg *pmsg) {
    TRACE_INFO("get_vid_pmsg_f start");
    if (pmsg == nullptr) {
        TRACE_ERR("pmsg is null");
        return -4;
    }
    TRACE_PMSG(pmsg);
    if (pmsg->cmd == TUKREDIS_CMD_EXPIRE) {
        TRACE_ERR("not care CMD_EXPIRE event");
        return 0;
    }
    g_vvlan_table.status = pmsg->cmd == TUKREDIS_CMD_SET ? 1 : 0;
    key_scan scan(pmsg_key(pmsg));
    uint16_t vid = 0;
    if (scan.literal(VID_PREFIX) && scan.uint16(&vid)) {
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
            if (vvlan_timer_start() != 0) {
                TRACE_INFO("pthread_create failed");
                return -11;
            }
            g_vvlan_table.is_running = 1;
            TRACE_INFO("is_running=%d, age_time_thread start", g_vvlan_table.is_running);
        }
    } else {
        // Attempted whether or not a thread runs: with none, the join fails
        // and is reported.
        if (vvlan_timer_cancel() != 0) {
            TRACE_INFO("send cancel signal failed");
        }
        const int rv = vvlan_timer_join();
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
