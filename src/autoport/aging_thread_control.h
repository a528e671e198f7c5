// SPDX-License-Identifier: BSD-3-Clause
// Starting and stopping the aging thread. The control lives beside the
// thread because only the thread's owner may know its handle; the vid and
// age_timer handlers decide when, and each traces the outcome of a stop in
// its own words.
#pragma once

#include <pthread.h>

#include "trace/trace.h"

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

// The start steps: create the thread; on failure trace "pthread_create
// failed" (info) and return false, leaving is_running as it was; on success
// set is_running and trace it. Traced under the caller's name.
bool aging_thread_start(trace_site site);

// The stop steps: a cancel request (a failure is traced "send cancel signal
// failed", info, and the join is still made), then the join. Returns the
// join's result for the caller to report in its own words.
int aging_thread_stop(trace_site site);
