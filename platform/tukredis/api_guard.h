// SPDX-License-Identifier: BSD-3-Clause
// The frame every public entry point runs in.
#pragma once

#include <exception>
#include <pthread.h>

#include "log.h"

namespace tukredis {

// Cancellation is off for the whole of a public call: a deferred cancel acting
// inside poll() or write() would unwind with the command mutex held or leave
// a command half written on the shared connection. The caller's state comes
// back on exit, and a pending cancel acts at the caller's next cancellation
// point instead.
class cancel_guard {
  public:
    cancel_guard() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
    ~cancel_guard() {
        int ignored = 0;
        pthread_setcancelstate(previous_, &ignored);
    }
    cancel_guard(const cancel_guard &) = delete;
    cancel_guard &operator=(const cancel_guard &) = delete;

  private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

// Runs the body of a C entry point. Nothing may unwind into the C caller, so
// an exception (in practice std::bad_alloc) becomes the entry point's failure
// value.
template <typename Result, typename Body>
Result c_entry(Result on_failure, Body &&body) noexcept {
    const cancel_guard guard;
    try {
        return body();
    } catch (const std::exception &e) {
        report("internal failure: %s", e.what());
    } catch (...) {
        report("internal failure: unknown exception");
    }
    return on_failure;
}

} // namespace tukredis
