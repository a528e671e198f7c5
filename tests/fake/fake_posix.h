// SPDX-License-Identifier: BSD-3-Clause
// Fault injection and a test clock for the few POSIX calls whose failures or
// timing the daemon's behaviour depends on. The unit-test executable is linked
// with -Wl,--wrap for pthread_create, pthread_mutex_init, fcntl, malloc and
// sleep (and getpid), so only the references made by the linked code are redirected here;
// the daemon's production code has no test hooks. getpid is wrapped only to
// count its calls. Every wrap passes through
// to the real call unless a test arms it.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace fake {

struct posix_faults {
    static void reset();
    static void fail_pthread_create(int result); // 0: pass through
    static void fail_mutex_init(int result);
    static void fail_fcntl_setlk(int err);                // F_SETLK fails with this errno; 0: pass
    static void fail_malloc(std::size_t size, int count); // the next count mallocs of size fail
    static int pthread_create_calls();
    static int mutex_init_calls();
    static long getpid_calls(); // counted so that tests can see a filtered trace never asks
};

enum class sleep_mode {
    REAL,       // sleep() as it is
    CONTROLLED, // a sleeping thread waits until the test releases it
    INSTANT,    // returns after a short real pause; still a cancellation point
};

// The aging thread's clock. In controlled mode a test steps the thread from
// one sleep to the next and looks at what it did in between.
class sleep_control {
  public:
    static sleep_control &get();
    void reset(sleep_mode mode);

    // Waits until a thread is blocked in a sleep that has not been released
    // yet; gives its seconds. false after the deadline.
    bool wait_sleeping(unsigned *seconds,
                       std::chrono::milliseconds deadline = std::chrono::seconds(10));
    // Lets the blocked sleep return.
    void release();
    std::vector<unsigned> requests();

    unsigned sleep_for(unsigned seconds); // the wrap
};

} // namespace fake
