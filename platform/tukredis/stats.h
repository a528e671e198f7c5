// SPDX-License-Identifier: BSD-3-Clause
// Counters behind tukredis_host_get_stats. Relaxed atomics: they are read by
// tests after the fact, never used to order anything. 32 bits, the widest
// a 32-bit MIPS updates atomically without libatomic; they wrap.
#pragma once

#include <atomic>
#include <cstdint>

namespace tukredis {

struct bus_stats {
    std::atomic<uint32_t> delivered{0};
    std::atomic<uint32_t> dropped{0};
    std::atomic<uint32_t> connect_attempts{0};
    std::atomic<uint32_t> reconnections{0};
    std::atomic<uint32_t> deferred{0};
    std::atomic<uint32_t> exchanges{0};
};

bus_stats &stats() noexcept;

inline void count(std::atomic<uint32_t> &counter) noexcept {
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace tukredis
