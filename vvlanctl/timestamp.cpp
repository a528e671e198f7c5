// SPDX-License-Identifier: BSD-3-Clause
#include "timestamp.h"

#include <cstdio>
#include <ctime>

namespace {

bool digits(std::string_view text, std::size_t at, std::size_t n, int *out) {
    if (at + n > text.size()) {
        return false;
    }
    int v = 0;
    for (std::size_t i = at; i < at + n; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
        v = v * 10 + (text[i] - '0');
    }
    *out = v;
    return true;
}

} // namespace

std::string local_timestamp(int64_t wall_us) {
    // Floor division, so that a time before the epoch keeps a positive fraction.
    int64_t seconds = wall_us / 1000000;
    int64_t micros = wall_us % 1000000;
    if (micros < 0) {
        micros += 1000000;
        --seconds;
    }
    const time_t t = static_cast<time_t>(seconds);
    tm local{};
    localtime_r(&t, &local);
    char date[32];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    char zone[8];
    std::strftime(zone, sizeof zone, "%z", &local); // "+0100"
    char buf[64];
    std::snprintf(buf, sizeof buf, "%s.%03ld%.3s:%.2s", date, static_cast<long>(micros / 1000),
                  zone, zone + 3);
    return buf;
}

std::string timestamp_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return local_timestamp(static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000);
}

bool parse_timestamp(std::string_view text, int64_t *wall_us) {
    // "YYYY-MM-DDTHH:MM:SS"
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(text, 0, 4, &year) || text.size() < 19 || text[4] != '-' ||
        !digits(text, 5, 2, &month) || text[7] != '-' || !digits(text, 8, 2, &day) ||
        (text[10] != 'T' && text[10] != ' ') || !digits(text, 11, 2, &hour) || text[13] != ':' ||
        !digits(text, 14, 2, &minute) || text[16] != ':' || !digits(text, 17, 2, &second)) {
        return false;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return false;
    }
    std::size_t at = 19;
    int64_t micros = 0;
    if (at < text.size() && text[at] == '.') {
        ++at;
        int64_t scale = 100000;
        const std::size_t first = at;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            micros += scale * (text[at] - '0');
            scale /= 10;
            ++at;
        }
        if (at == first) {
            return false;
        }
    }
    int64_t offset_s = 0;
    if (at < text.size() && text[at] == 'Z') {
        ++at;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        const int sign = text[at] == '-' ? -1 : 1;
        int oh = 0, om = 0;
        if (!digits(text, at + 1, 2, &oh)) {
            return false;
        }
        std::size_t m = at + 3;
        if (m < text.size() && text[m] == ':') {
            ++m;
        }
        if (!digits(text, m, 2, &om) || oh > 23 || om > 59) {
            return false;
        }
        offset_s = sign * (oh * 3600 + om * 60);
        at = m + 2;
    } else {
        return false;
    }
    if (at != text.size()) {
        return false;
    }
    tm utc{};
    utc.tm_year = year - 1900;
    utc.tm_mon = month - 1;
    utc.tm_mday = day;
    utc.tm_hour = hour;
    utc.tm_min = minute;
    utc.tm_sec = second;
    const int64_t seconds = static_cast<int64_t>(timegm(&utc)) - offset_s;
    *wall_us = seconds * 1000000 + micros;
    return true;
}

bool parse_time_from_start(std::string_view text, int64_t *us) {
    if (text.size() < 2) {
        return false;
    }
    const char unit = text.back();
    const int64_t scale = unit == 's'   ? 1000000
                          : unit == 'm' ? 60000000
                          : unit == 'h' ? 3600000000
                                        : 0;
    if (scale == 0) {
        return false;
    }
    int64_t whole = 0;
    int64_t fraction = 0;
    int64_t fraction_scale = 1;
    bool point = false;
    bool any = false;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        const char c = text[i];
        if (c == '.' && !point) {
            point = true;
        } else if (c >= '0' && c <= '9') {
            any = true;
            if (point) {
                if (fraction_scale < 1000000) {
                    fraction = fraction * 10 + (c - '0');
                    fraction_scale *= 10;
                }
            } else {
                if (whole > 1000000000) {
                    return false;
                }
                whole = whole * 10 + (c - '0');
            }
        } else {
            return false;
        }
    }
    if (!any) {
        return false;
    }
    *us = whole * scale + fraction * scale / fraction_scale;
    return true;
}
