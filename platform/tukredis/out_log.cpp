// SPDX-License-Identifier: BSD-3-Clause
// The write log: the daemon announces a write before making it and completes
// it afterwards, so that a stuck write shows as an entry that stays open. A
// fixed ring, because only the recent writes matter and the log must never
// grow.
#include "out_log.h"

#include <array>
#include <chrono>
#include <cstring>
#include <mutex>

#include "api.h"
#include "api_guard.h"

namespace tukredis {
namespace {

constexpr size_t ENTRIES = 64;
// Handles are sequence numbers kept positive, so that -1 (no entry) is never
// a handle. 2^31 is a multiple of the ring size, so a handle's slot is stable
// across the wrap.
constexpr uint32_t HANDLE_MASK = 0x7fffffffU;

struct log_entry {
    int32_t handle = -1;
    char key[TUKREDIS_KEY_LEN] = {};
    int32_t op = 0;
    int32_t db = 0;
    std::chrono::steady_clock::time_point started{};
    std::chrono::steady_clock::time_point finished{};
    bool done = false;
};

struct log_ring {
    std::mutex mutex;
    std::array<log_entry, ENTRIES> entries{};
    uint32_t next = 0;
};

// Never destroyed: the daemon's threads may still write while the process
// exits.
log_ring &ring() {
    static log_ring *const instance = new log_ring;
    return *instance;
}

log_entry &slot_of(log_ring &r, int32_t handle) {
    return r.entries[static_cast<uint32_t>(handle) % ENTRIES];
}

} // namespace

void out_log_reset() {
    log_ring &r = ring();
    const std::lock_guard lock(r.mutex);
    r.entries.fill(log_entry{});
    r.next = 0;
}

} // namespace tukredis

using namespace tukredis;

int32_t tukredis_db_out_log(const char *key, int32_t op, int32_t db, int32_t level) {
    return c_entry<int32_t>(-1, [&]() -> int32_t {
        if (key == nullptr || level == 0) {
            return -1;
        }
        log_ring &r = ring();
        const std::lock_guard lock(r.mutex);
        const auto handle = static_cast<int32_t>(r.next++ & HANDLE_MASK);
        log_entry &entry = slot_of(r, handle);
        entry = log_entry{};
        entry.handle = handle;
        // Longer keys are kept cut: the entry is for reading, not for lookup.
        std::strncpy(entry.key, key, sizeof entry.key - 1);
        entry.op = op;
        entry.db = db;
        entry.started = std::chrono::steady_clock::now();
        return handle;
    });
}

int32_t tukredis_db_out_log_stat(int32_t handle) {
    return c_entry<int32_t>(-1, [&]() -> int32_t {
        if (handle < 0) {
            return -1;
        }
        log_ring &r = ring();
        const std::lock_guard lock(r.mutex);
        log_entry &entry = slot_of(r, handle);
        // The slot may have been reused by a later write since.
        if (entry.handle != handle) {
            return -1;
        }
        if (!entry.done) {
            entry.done = true;
            entry.finished = std::chrono::steady_clock::now();
        }
        return 0;
    });
}

int32_t tukredis_out_log_pending(void) {
    return c_entry<int32_t>(-1, [] {
        log_ring &r = ring();
        const std::lock_guard lock(r.mutex);
        int32_t pending = 0;
        for (const log_entry &entry : r.entries) {
            if (entry.handle >= 0 && !entry.done) {
                ++pending;
            }
        }
        return pending;
    });
}
