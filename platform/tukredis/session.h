// SPDX-License-Identifier: BSD-3-Clause
// Process-wide state of the bus session: the registered table, the
// subscription connection and the connect back-off. Used by the daemon's
// main thread only (tukredis_init, _db_connect, _db_psubscrible, _pubsub).
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "api.h"
#include "frame.h"
#include "io.h"

namespace tukredis {

// Pause between connection attempts: 50 ms, doubling up to 1 s.
class connect_backoff {
  public:
    static constexpr std::chrono::milliseconds FIRST{50};
    static constexpr std::chrono::milliseconds LONGEST{1000};

    std::chrono::milliseconds next() noexcept {
        const auto pause = current_;
        current_ = std::min(current_ * 2, LONGEST);
        return pause;
    }
    void reset() noexcept { current_ = FIRST; }

  private:
    std::chrono::milliseconds current_ = FIRST;
};

struct session_state {
    // The registration, kept by reference as the daemon's table is static.
    const tukredis_sub_row *table = nullptr;
    int32_t rows = 0;
    tukredis_resync_cb resync = nullptr;

    // The subscription connection; null once lost. Its reader builds every
    // reply into frame.
    context_ptr subscription;
    frame_buf frame;
    bool subscribed = false;
    // Per row, the channel pattern "__keyspace@<db>__:<pattern>" it was
    // subscribed with; the server names it in every pmessage. Built once per
    // subscription, with the length of its "__keyspace@<db>__:" prefix, so
    // that an event is matched and its key found without building a string.
    std::vector<std::string> channel_patterns;
    std::vector<size_t> prefix_lengths;
    // Messages that arrived ahead of the subscription's last confirmation.
    std::deque<frame_buf> early;

    // The re-synchronisation callback gets 0 only once per process.
    bool subscribed_before = false;

    connect_backoff backoff;
    bool connected_before = false;
    steady_clock::time_point last_connected{};
};

session_state &session();

// Frees the subscription connection.
void close_subscription();

// Reports why the subscription connection is gone and frees it.
void lose_subscription(const std::string &why);

void session_reset();

} // namespace tukredis
