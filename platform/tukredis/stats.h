// Counters behind tukredis_host_get_stats. Relaxed atomics: they are read by
// tests after the fact, never used to order anything.
#pragma once

#include <atomic>
#include <cstdint>

namespace tukredis {

struct Stats {
    std::atomic<uint64_t> delivered{0};
    std::atomic<uint64_t> dropped{0};
    std::atomic<uint64_t> connect_attempts{0};
    std::atomic<uint64_t> reconnections{0};
};

Stats &stats() noexcept;

inline void count(std::atomic<uint64_t> &counter) noexcept {
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace tukredis
