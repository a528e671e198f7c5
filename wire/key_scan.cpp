// SPDX-License-Identifier: BSD-3-Clause
#include "wire/key_scan.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace {

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// strtoul/strtol with a 32-bit long, decimal: the magnitude saturates at
// 2^32-1 and overflow is remembered.
struct decimal {
    bool negative = false;
    bool overflow = false;
    uint32_t magnitude = 0;
    std::size_t used = 0; // characters consumed, 0 when there were no digits
};

decimal scan_decimal(std::string_view s) {
    decimal d;
    std::size_t i = 0;
    while (i < s.size() && is_space(s[i])) {
        ++i;
    }
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
        d.negative = s[i] == '-';
        ++i;
    }
    const std::size_t first_digit = i;
    uint64_t value = 0;
    while (i < s.size() && is_digit(s[i])) {
        if (!d.overflow) {
            value = value * 10 + static_cast<uint64_t>(s[i] - '0');
            if (value > std::numeric_limits<uint32_t>::max()) {
                d.overflow = true;
            }
        }
        ++i;
    }
    if (i == first_digit) {
        return decimal{};
    }
    d.magnitude = d.overflow ? std::numeric_limits<uint32_t>::max() : static_cast<uint32_t>(value);
    d.used = i;
    return d;
}

// strtol semantics on a 32-bit long.
int32_t to_long32(const decimal &d) {
    constexpr uint32_t MAX_POS = static_cast<uint32_t>(std::numeric_limits<int32_t>::max());
    if (d.negative) {
        if (d.overflow || d.magnitude > MAX_POS + 1u) {
            return std::numeric_limits<int32_t>::min();
        }
        return static_cast<int32_t>(0u - d.magnitude);
    }
    if (d.overflow || d.magnitude > MAX_POS) {
        return std::numeric_limits<int32_t>::max();
    }
    return static_cast<int32_t>(d.magnitude);
}

// strtoul semantics on a 32-bit unsigned long: a minus sign negates the
// value modulo 2^32 unless the magnitude overflowed.
uint32_t to_ulong32(const decimal &d) {
    if (d.overflow) {
        return std::numeric_limits<uint32_t>::max();
    }
    return d.negative ? 0u - d.magnitude : d.magnitude;
}

// The number at pos in text, pos moved past it; nothing when there is none.
std::optional<decimal> take_decimal(std::string_view text, std::size_t &pos) {
    const decimal d = scan_decimal(text.substr(pos));
    if (d.used == 0) {
        return std::nullopt;
    }
    pos += d.used;
    return d;
}

} // namespace

bool key_scan::skip_component() {
    std::string_view ignored;
    return component(&ignored);
}

bool key_scan::word(std::string_view *out) {
    while (pos_ < text_.size() && is_space(text_[pos_])) {
        ++pos_;
    }
    const std::string_view r = rest();
    std::size_t n = 0;
    while (n < r.size() && !is_space(r[n])) {
        ++n;
    }
    if (n == 0) {
        return false;
    }
    *out = r.substr(0, n);
    pos_ += n;
    return true;
}

bool key_scan::int32(int32_t *out) {
    const auto d = take_decimal(text_, pos_);
    if (d) {
        *out = to_long32(*d);
    }
    return d.has_value();
}

bool key_scan::uint16(uint16_t *out) {
    const auto d = take_decimal(text_, pos_);
    if (d) {
        *out = static_cast<uint16_t>(to_ulong32(*d));
    }
    return d.has_value();
}

namespace {
bool skip_to_component(key_scan &scan, int n) {
    for (int i = 1; i < n; ++i) {
        if (!scan.literal("/") || !scan.skip_component()) {
            return false;
        }
    }
    return scan.literal("/");
}
} // namespace

std::string_view key_component(std::string_view key, int n) {
    key_scan scan(key);
    std::string_view out;
    if (n < 1 || !skip_to_component(scan, n) || !scan.component(&out)) {
        return {};
    }
    return out;
}

std::string_view key_rest(std::string_view key, int n) {
    key_scan scan(key);
    std::string_view out;
    if (n < 1 || !skip_to_component(scan, n) || !scan.word(&out)) {
        return {};
    }
    return out;
}

std::string_view key_component_bounded(std::string_view key, int n) {
    const std::string_view c = key_component(key, n);
    return c.substr(0, std::min(c.size(), KEY_COMPONENT_MAX));
}

std::string_view key_rest_bounded(std::string_view key, int n) {
    const std::string_view r = key_rest(key, n);
    return r.substr(0, std::min(r.size(), KEY_COMPONENT_MAX));
}

std::string_view key_walk::rest() {
    std::string_view word;
    if (!ok_ || !scan_.literal("/") || !scan_.word(&word)) {
        ok_ = false;
        return {};
    }
    return word.substr(0, std::min(word.size(), KEY_COMPONENT_MAX));
}

int32_t atoi32(std::string_view text) {
    const decimal d = scan_decimal(text);
    return d.used == 0 ? 0 : to_long32(d);
}

bool mac_from_hex(std::string_view text, std::array<uint8_t, 6> *mac) {
    bool all = true;
    for (std::size_t k = 0; k < mac->size(); ++k) {
        uint8_t byte = 0;
        if (2 * k + 1 >= text.size() || !hex_byte(text[2 * k], text[2 * k + 1], &byte)) {
            all = false;
            byte = 0;
        }
        (*mac)[k] = byte;
    }
    return all;
}
