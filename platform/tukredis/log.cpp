// SPDX-License-Identifier: BSD-3-Clause
#include "log.h"

#include <cstdarg>
#include <cstdio>

namespace tukredis {

namespace {

constexpr size_t LONGEST_LINE = 512;

} // namespace

void report(const char *format, ...) {
    char line[LONGEST_LINE];
    va_list ap;
    va_start(ap, format);
    const int n = std::vsnprintf(line, sizeof line, format, ap);
    va_end(ap);
    if (n >= 0) {
        std::fprintf(stderr, "tukredis: %s\n", line);
    }
}

void report_limited(rate_limit &limit, const char *format, ...) {
    uint64_t held_back = 0;
    if (!limit.allow(held_back)) {
        return;
    }
    char line[LONGEST_LINE];
    va_list ap;
    va_start(ap, format);
    const int n = std::vsnprintf(line, sizeof line, format, ap);
    va_end(ap);
    if (n < 0) {
        return;
    }
    if (held_back == 0) {
        std::fprintf(stderr, "tukredis: %s\n", line);
    } else {
        std::fprintf(stderr, "tukredis: %s (%llu similar messages held back)\n", line,
                     static_cast<unsigned long long>(held_back));
    }
}

bool rate_limit::allow(uint64_t &held_back) {
    const std::lock_guard lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (ever_ && now - last_ < period_) {
        ++held_back_;
        return false;
    }
    ever_ = true;
    last_ = now;
    held_back = held_back_;
    held_back_ = 0;
    return true;
}

} // namespace tukredis
