// SPDX-License-Identifier: BSD-3-Clause
#include "autoport/aging_thread_control.h"

#include <cerrno>

#include "autoport/aging_thread.h"
#include "settings/vvlan_table.h"

vvlan_thread_handle vvlan_timer_thread{};

int vvlan_timer_start() {
    pthread_t id{};
    const int rv = pthread_create(&id, nullptr, age_time_thread, nullptr);
    if (rv == 0) {
        vvlan_timer_thread = vvlan_thread_handle{id, true};
    }
    return rv;
}

int vvlan_timer_cancel() {
    if (!vvlan_timer_thread.live) {
        return ESRCH;
    }
    return pthread_cancel(vvlan_timer_thread.id);
}

int vvlan_timer_join() {
    if (!vvlan_timer_thread.live) {
        return ESRCH;
    }
    const int rv = pthread_join(vvlan_timer_thread.id, nullptr);
    if (rv == 0) {
        vvlan_timer_thread.live = false;
    }
    return rv;
}

bool aging_thread_start(trace_site site) {
    if (vvlan_timer_start() != 0) {
        TRACE_INFO_AT(site, "pthread_create failed");
        return false;
    }
    g_vvlan_table.is_running = 1;
    TRACE_INFO_AT(site, "is_running=%d, age_time_thread start", g_vvlan_table.is_running);
    return true;
}

int aging_thread_stop(trace_site site) {
    if (vvlan_timer_cancel() != 0) {
        TRACE_INFO_AT(site, "send cancel signal failed");
    }
    return vvlan_timer_join();
}
