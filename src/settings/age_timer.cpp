#include "settings/age_timer.h"

#include <atomic>

#include "bus/byte_order.h"
#include "settings/timer_thread.h"
#include "settings/vvlan_table.h"
#include "trace/trace.h"

// A delete is handled like a set: the value is read again. With the voice
// VLAN on, the thread is restarted so that it starts a fresh period with the
// new time. The thread-control messages differ from the vid handler's and
// are all at info level, failures included.
int32_t get_age_timer_pmsg_f(tukredis_pmsg *pmsg) {
    TRACE_INFO("get_age_timer_pmsg_f start");
    if (pmsg == nullptr) {
        TRACE_ERR("pmsg is null");
        return -4;
    }
    TRACE_PMSG(pmsg);
    if (pmsg->cmd == TUKREDIS_CMD_EXPIRE) {
        TRACE_ERR("not care CMD_EXPIRE event");
        return 0;
    }
    // The null test relies on the library setting the pointer on success;
    // it starts null all the same so that a reader that leaves it alone can
    // never make us read garbage.
    char *bytes = nullptr;
    uint32_t len = 0;
    if (tukredis_get_key_reply_strval(pmsg->reply, &bytes, &len) != 0) {
        TRACE_ERR("get value fail");
        return -11;
    }
    if (bytes == nullptr) {
        TRACE_ERR("vvlan_timer is NULL\n");
        return -4;
    }
    if (len < AGE_TIMER_LEN) {
        TRACE_ERR("vvlan_timer is too short, len=%u", len);
        return -4;
    }
    // A running aging thread may still be reading the old time as it starts:
    // the store is atomic (a plain halfword store on the target).
    std::atomic_ref<uint16_t>(g_vvlan_table.aging_minutes)
        .store(be16_get(reinterpret_cast<const uint8_t *>(bytes)), std::memory_order_relaxed);
    TRACE_INFO("aging_minutes=%hu", static_cast<unsigned short>(g_vvlan_table.aging_minutes));
    if (g_vvlan_table.status == 0) {
        return 0; // used when the voice VLAN is next enabled
    }
    TRACE_INFO("is_running=%d", g_vvlan_table.is_running);
    if (g_vvlan_table.is_running == 1) {
        if (vvlan_timer_cancel() != 0) {
            TRACE_INFO("send cancel signal failed");
        }
        const int rv = vvlan_timer_join();
        if (rv != 0) {
            TRACE_INFO("pthread_join failed, rv=%d", rv);
            return -11;
        }
        // is_running stays 1 here: a failed creation below leaves it so,
        // and the next disable then reports the stale handle. Kept so.
        TRACE_INFO("vvlan_timer_thread has been exit");
    }
    TRACE_INFO("timer func enable the aging thread");
    if (vvlan_timer_start() != 0) {
        TRACE_INFO("pthread_create failed");
        return -11;
    }
    g_vvlan_table.is_running = 1;
    TRACE_INFO("is_running=%d, age_time_thread start", g_vvlan_table.is_running);
    TRACE_INFO("get_age_timer_pmsg_f end");
    return 0;
}
