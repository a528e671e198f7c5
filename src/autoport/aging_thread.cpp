// SPDX-License-Identifier: BSD-3-Clause
#include "autoport/aging_thread.h"

#include <pthread.h>

#include <atomic>
#include <unistd.h>

#include "autoport/auto_port.h"
#include "autoport/join_request.h"
#include "autoport/port_oper.h"
#include "settings/vvlan_table.h"
#include "trace/trace.h"

// Cancellation is deferred and enabled only here, around the sleeps. So a
// stop (cancel, then join) takes effect within a sleep at once, and can
// never land inside a judging pass: g_flag_lock is never left held and no
// bus write is ever cut in half. A cancel requested during a pass takes
// effect at the next sleep.
void age_sleep(unsigned seconds) {
    int ignored = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
    pthread_testcancel(); // also for a zero-second period
    sleep(seconds);
    pthread_testcancel();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
}

// Read without the lock: a flag raised just after the look is seen at the
// next pass.
bool any_port_ageing() {
    for (const vvlan_auto_port &port : g_vvlan_auto_port) {
        if (port.enable != 0 && port.aging_flag != 0) {
            return true;
        }
    }
    return false;
}

// The period is read once: a new aging time takes effect only by a restart.
// Every pass waits 5 seconds; while a port is ageing it then waits one whole
// period more before judging, so a port is removed one period after the
// first look that sees its flag.
void *age_time_thread(void *) {
    int ignored = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &ignored);
    // Read once, with an atomic load: the age_timer handler stores a new time
    // before it stops this thread, so the two may meet.
    const uint32_t seconds =
        static_cast<uint32_t>(std::atomic_ref<uint16_t>(g_vvlan_table.aging_minutes)
                                  .load(std::memory_order_relaxed)) *
        60u;
    TRACE_INFO("aging_time=%u", seconds);
    for (;;) {
        age_sleep(AGE_CHECK_SECONDS);
        TRACE_INFO("check_time end!");
        if (any_port_ageing()) {
            TRACE_INFO("aging time start!");
            age_sleep(seconds);
            TRACE_INFO("aging time end!");
        }
        // One judging pass over every auto port, under g_flag_lock for its
        // whole length, bus writes included. A refreshed port is spared once
        // and its flag cleared in every pass, the 5-second ones too.
        const flag_lock_guard lock;
        for (std::size_t ifx = 0; ifx < VVLAN_PORT_MAX; ++ifx) {
            vvlan_auto_port &port = g_vvlan_auto_port[ifx];
            if (port.enable == 0) {
                continue;
            }
            TRACE_INFO("determined whether the auto port %d should be aged", static_cast<int>(ifx));
            if (port.refresh_flag != 0) {
                port.refresh_flag = 0;
                continue;
            }
            if (port.aging_flag == 0) {
                continue;
            }
            TRACE_INFO("del auto mode port msg to PI");
            set_mac2ce_global(static_cast<uint32_t>(ifx), 0);
            del_port_oper_redis(static_cast<int32_t>(ifx), PORT_MODE_JOINED);
            TRACE_INFO("the %d port is aged", static_cast<int>(ifx));
        }
    }
    return nullptr;
}
