// SPDX-License-Identifier: BSD-3-Clause
#include "settings/age_timer.h"

#include <atomic>

#include "autoport/aging_thread_control.h"
#include "handler/handler_steps.h"
#include "settings/vvlan_table.h"
#include "wire/values.h"

// A delete is handled like a set: the value is read again. With the voice
// VLAN on, the thread is restarted so that it starts a fresh period with the
// new time. The thread-control messages differ from the vid handler's and
// are all at info level, failures included.
int32_t get_age_timer_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg)) {
        return *done;
    }
    uint16_t minutes = 0;
    const value_read r = read_record<aging_time_codec>(TRACE_SITE, pmsg, "vvlan_timer", &minutes);
    if (r != value_read::ok) {
        return read_failure_result(r);
    }
    // A running aging thread may still be reading the old time as it starts:
    // the store is atomic (a plain halfword store on the target).
    std::atomic_ref<uint16_t>(g_vvlan_table.aging_minutes)
        .store(minutes, std::memory_order_relaxed);
    TRACE_INFO("aging_minutes=%hu", static_cast<unsigned short>(minutes));
    if (g_vvlan_table.status == 0) {
        return 0; // used when the voice VLAN is next enabled
    }
    TRACE_INFO("is_running=%d", g_vvlan_table.is_running);
    if (g_vvlan_table.is_running == 1) {
        const int rv = aging_thread_stop(TRACE_SITE);
        if (rv != 0) {
            TRACE_INFO("pthread_join failed, rv=%d", rv);
            return -11;
        }
        // is_running stays 1 here: a failed creation below leaves it so,
        // and the next disable then reports the stale handle. Kept so.
        TRACE_INFO("vvlan_timer_thread has been exit");
    }
    TRACE_INFO("timer func enable the aging thread");
    if (!aging_thread_start(TRACE_SITE)) {
        return -11;
    }
    TRACE_INFO("get_age_timer_pmsg_f end");
    return 0;
}
