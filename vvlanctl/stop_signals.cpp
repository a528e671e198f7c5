// SPDX-License-Identifier: BSD-3-Clause
#include "stop_signals.h"

#include <csignal>

namespace {

volatile std::sig_atomic_t g_stop = 0;

void on_signal(int) {
    g_stop = 1;
}

} // namespace

void catch_stop_signals(bool hangup) {
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    if (hangup) {
        sigaction(SIGHUP, &sa, nullptr);
    }
}

bool stop_requested() {
    return g_stop != 0;
}
