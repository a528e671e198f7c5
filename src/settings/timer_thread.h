// Start and stop steps of the aging thread, shared by the vid and age_timer
// handlers (each traces the results in its own words).
#pragma once

#include <pthread.h>

// The thread handle and whether it names a thread that was created and not
// yet joined. pthread_cancel and pthread_join on a handle that names no
// thread are undefined (and crash glibc), so such a request is answered with
// ESRCH here instead of being made.
struct vvlan_thread_handle {
    pthread_t id;
    bool live;
};

extern vvlan_thread_handle vvlan_timer_thread; // main thread only

// pthread_create with default attributes running age_time_thread; returns
// its result.
int vvlan_timer_start();
// pthread_cancel; 0 or an error code (ESRCH when no thread is live).
int vvlan_timer_cancel();
// pthread_join, exit value discarded; 0 or an error code. After a
// successful join the handle names no thread.
int vvlan_timer_join();
