// SPDX-License-Identifier: BSD-3-Clause
#include "pmessage_view.h"

#include <cstddef>

#include "hiredis_reader.h"

namespace tukredis {
namespace {

constexpr std::string_view HEADER = "*4\r\n$8\r\npmessage\r\n";
constexpr std::string_view END = "\r\n";
// Longer than any key the server accepts (512 MB) is not a length.
constexpr size_t LONGEST_BULK = 512UL * 1024 * 1024;

// "$<length>\r\n<bytes>\r\n" at *at in bytes.
in_place bulk(std::string_view bytes, size_t *at, std::string_view *out) noexcept {
    size_t p = *at;
    if (p >= bytes.size()) {
        return in_place::PARTIAL;
    }
    if (bytes[p] != '$') {
        return in_place::OTHER;
    }
    ++p;
    size_t length = 0;
    const size_t digits_start = p;
    for (;; ++p) {
        if (p >= bytes.size()) {
            return in_place::PARTIAL;
        }
        const char c = bytes[p];
        if (c < '0' || c > '9') {
            break;
        }
        // Bounded before the multiplication: with a 32-bit size_t (the
        // switch), 2^32 + 28 would otherwise wrap to 28 and be accepted.
        const auto digit = static_cast<size_t>(c - '0');
        if (length > (LONGEST_BULK - digit) / 10) {
            return in_place::OTHER;
        }
        length = length * 10 + digit;
    }
    if (p == digits_start) {
        return in_place::OTHER; // "$-1" and the like
    }
    // hiredis takes a length only in its canonical form ("0", or no leading
    // zero) and reports "$01" as a protocol error at once: so must we, by
    // leaving it to hiredis, instead of waiting for a byte that is not due.
    if (bytes[digits_start] == '0' && p - digits_start > 1) {
        return in_place::OTHER;
    }
    if (bytes.size() - p < END.size()) {
        return in_place::PARTIAL;
    }
    if (bytes.substr(p, END.size()) != END) {
        return in_place::OTHER;
    }
    p += END.size();
    if (bytes.size() - p < length + END.size()) {
        return in_place::PARTIAL;
    }
    if (bytes.substr(p + length, END.size()) != END) {
        return in_place::OTHER;
    }
    *out = bytes.substr(p, length);
    *at = p + length + END.size();
    return in_place::MESSAGE;
}

} // namespace

in_place next_pmessage(redisReader *reader, pmessage_view &view) noexcept {
    if (!hiredis::between_replies(reader)) {
        return in_place::OTHER;
    }
    hiredis::compact(reader);
    const std::string_view bytes = hiredis::unread(reader);
    if (bytes.size() < HEADER.size()) {
        return HEADER.starts_with(bytes) ? in_place::PARTIAL : in_place::OTHER;
    }
    if (!bytes.starts_with(HEADER)) {
        return in_place::OTHER;
    }
    size_t at = HEADER.size();
    for (std::string_view *part : {&view.pattern, &view.channel, &view.event}) {
        const in_place got = bulk(bytes, &at, part);
        if (got != in_place::MESSAGE) {
            return got;
        }
    }
    hiredis::consume(reader, at);
    return in_place::MESSAGE;
}

} // namespace tukredis
