#include "settings/timer_thread.h"

#include <cerrno>

#include "autoport/age_thread.h"

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
