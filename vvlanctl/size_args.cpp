// SPDX-License-Identifier: BSD-3-Clause
#include "size_args.h"

#include <charconv>
#include <ctime>

namespace {

// The digits and what follows them; false without digits or past 2^53.
bool split_number(std::string_view text, uint64_t *n, std::string_view *unit) {
    const auto r = std::from_chars(text.data(), text.data() + text.size(), *n);
    if (r.ec != std::errc() || r.ptr == text.data() || *n > (uint64_t{1} << 53)) {
        return false;
    }
    *unit = text.substr(static_cast<std::size_t>(r.ptr - text.data()));
    return true;
}

int64_t read_clock(clockid_t id) {
    timespec ts{};
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

} // namespace

bool parse_duration(std::string_view text, int64_t *us, std::string *why) {
    uint64_t n = 0;
    std::string_view unit;
    uint64_t scale = 0;
    if (split_number(text, &n, &unit)) {
        scale = unit == "ms"                  ? 1000
                : unit == "s" || unit.empty() ? 1000000
                : unit == "m"                 ? 60000000
                : unit == "h"                 ? 3600000000
                : unit == "d"                 ? 86400000000
                                              : 0;
    }
    if (scale == 0 || n == 0 || n > static_cast<uint64_t>(INT64_MAX) / scale) {
        *why = "DURATION \"" + std::string(text) +
               "\" is not a positive number with ms, s, m, h or d (\"90s\", \"24h\")";
        return false;
    }
    *us = static_cast<int64_t>(n * scale);
    return true;
}

bool parse_size(std::string_view text, uint64_t *out, std::string *why) {
    uint64_t n = 0;
    std::string_view unit;
    uint64_t scale = 0;
    if (split_number(text, &n, &unit)) {
        scale = unit.empty()                 ? 1
                : unit == "k" || unit == "K" ? 1024
                : unit == "M"                ? 1024 * 1024
                : unit == "G"                ? 1024 * 1024 * 1024
                                             : 0;
    }
    if (scale == 0 || n == 0) {
        *why = "SIZE \"" + std::string(text) +
               "\" is not a positive number, bare or with k, M or G (\"64M\")";
        return false;
    }
    *out = n * scale;
    return true;
}

namespace rec_clock {

int64_t mono_us() {
    return read_clock(CLOCK_MONOTONIC);
}

int64_t wall_us() {
    return read_clock(CLOCK_REALTIME);
}

} // namespace rec_clock
