// SPDX-License-Identifier: BSD-3-Clause
#include "daemon_state.h"

#include <pthread.h>
#include <unistd.h>

#include "autoport/aging_thread_control.h"
#include "autoport/auto_port.h"
#include "fake_bus.h"
#include "fake_platform.h"
#include "fake_posix.h"
#include "fake_trace.h"
#include "main/vvlan_init.h"
#include "oui/mvlan_table.h"
#include "oui/oui_table.h"
#include "settings/vvlan_table.h"
#include "trace/debug_level.h"
#include "trace/trace.h"

namespace fake {

void stop_aging_thread() {
    if (vvlan_timer_thread.live) {
        pthread_cancel(vvlan_timer_thread.id);
        pthread_join(vvlan_timer_thread.id, nullptr);
        vvlan_timer_thread.live = false;
    }
}

void reset_daemon_state() {
    stop_aging_thread();
    vvlan_timer_thread = vvlan_thread_handle{};
    g_vvlan_table = vvlan_table{};
    g_vvlan_oui_table = {};
    for (mvlan_entry &entry : g_mvlan_table) {
        entry = mvlan_entry{};
    }
    for (vvlan_auto_port &port : g_vvlan_auto_port) {
        port.enable = 0;
        port.pri_oui_num = 0;
        port.aging_flag = 0;
        port.refresh_flag = 0;
        port.add_vvlan_flag = 0;
    }
    g_auto_add_vvlan_table = {};
    g_auto_oui_flag = {};
    pthread_mutex_destroy(&g_flag_lock);
    pthread_mutex_init(&g_flag_lock, nullptr);
    if (g_pid_fd >= 0) {
        close(g_pid_fd);
        g_pid_fd = -1;
    }
}

void reset_all() {
    posix_faults::reset();
    sleep_control::get().reset(sleep_mode::CONTROLLED);
    reset_daemon_state();
    posix_faults::reset(); // reset_daemon_state initialised the mutex through the wrap
    bus::get().reset();
    platform::get().reset();
    dov_vvlan_set_dbg(DBG_ALL);
    clear_trace();
}

} // namespace fake
