// SPDX-License-Identifier: BSD-3-Clause
// Reporting on stderr: every line carries the "tukredis: " prefix so that the
// daemon's log tells the bus library's state changes from its own.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace tukredis {

// Writes one line, prefix included, with a single stdio call so that lines of
// concurrent threads do not interleave.
void report(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Lets a recurring message through at most once per period. Used where a line
// per event would flood the log (dropped keys, a server that stays down).
class rate_limit {
  public:
    explicit rate_limit(std::chrono::seconds period) : period_(period) {}

    // True when a line may be written now; held_back then receives how many
    // were refused since the previous line.
    bool allow(uint64_t &held_back);

  private:
    std::mutex mutex_;
    std::chrono::seconds period_;
    std::chrono::steady_clock::time_point last_{};
    bool ever_ = false;
    uint64_t held_back_ = 0;
};

// Writes one line through limit, telling how many similar lines it held back
// since the previous one.
void report_limited(rate_limit &limit, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

} // namespace tukredis
