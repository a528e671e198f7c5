// SPDX-License-Identifier: BSD-3-Clause
// hiredis 0.14 declares its string functions without C linkage, and
// hiredis.h includes them outside its own extern "C": they are declared here
// first, so that the header's guard keeps them C.
extern "C" {
#include <hiredis/sds.h>
}

#include "pmessage_view.h"

#include <cstddef>
#include <hiredis/read.h>

namespace tukredis {
namespace {

constexpr std::string_view HEADER = "*4\r\n$8\r\npmessage\r\n";
constexpr std::string_view END = "\r\n";
// Longer than any key the server accepts (512 MB) is not a length.
constexpr size_t LONGEST_BULK = 512UL * 1024 * 1024;
// hiredis drops consumed bytes once this many have gathered; the same here,
// so that the buffer does not grow with the backlog.
constexpr size_t COMPACT_AT = 1024;

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

// Drops the bytes already delivered. Only before the next frame is read:
// the views of the last one point into the bytes that move.
void compact(redisReader *reader) noexcept {
    if (reader->pos >= COMPACT_AT) {
        // pos is below 1 KiB plus one frame, and a frame is below 2 GiB.
        sdsrange(reader->buf, static_cast<int>(reader->pos), -1);
        reader->pos = 0;
        reader->len = sdslen(reader->buf);
    }
}

} // namespace

in_place next_pmessage(redisReader *reader, pmessage_view &view) noexcept {
    if (reader->err != 0 || reader->ridx != -1) {
        return in_place::OTHER;
    }
    compact(reader);
    const std::string_view bytes(reader->buf + reader->pos, reader->len - reader->pos);
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
    reader->pos += at;
    return in_place::MESSAGE;
}

} // namespace tukredis
