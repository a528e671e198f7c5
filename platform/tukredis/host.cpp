// SPDX-License-Identifier: BSD-3-Clause
// The host-only introspection of tukredis_host.h.
#include <string_view>

#include "api.h"
#include "api_guard.h"
#include "command.h"
#include "event_map.h"
#include "out_log.h"
#include "session.h"
#include "stats.h"

namespace tukredis {

bus_stats &stats() noexcept {
    static bus_stats *const instance = new bus_stats;
    return *instance;
}

} // namespace tukredis

using namespace tukredis;

void tukredis_host_get_stats(tukredis_host_stats *out) {
    if (out == nullptr) {
        return;
    }
    const bus_stats &s = stats();
    out->delivered = s.delivered.load(std::memory_order_relaxed);
    out->dropped = s.dropped.load(std::memory_order_relaxed);
    out->connect_attempts = s.connect_attempts.load(std::memory_order_relaxed);
    out->reconnections = s.reconnections.load(std::memory_order_relaxed);
    out->deferred = s.deferred.load(std::memory_order_relaxed);
    out->exchanges = s.exchanges.load(std::memory_order_relaxed);
}

int32_t tukredis_host_event_code(const char *event, const char *key) {
    if (event == nullptr || key == nullptr) {
        return NOT_DELIVERED;
    }
    return event_code(event, key);
}

void tukredis_host_reset(void) {
    c_entry<int>(0, [] {
        session_reset();
        command_connection().drop();
        out_log_reset();
        bus_stats &s = stats();
        s.delivered = 0;
        s.dropped = 0;
        s.connect_attempts = 0;
        s.reconnections = 0;
        s.deferred = 0;
        s.exchanges = 0;
        return 0;
    });
}
