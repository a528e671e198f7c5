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

constexpr std::string_view kHeader = "*4\r\n$8\r\npmessage\r\n";
constexpr std::string_view kEnd = "\r\n";
// Longer than any key the server accepts (512 MB) is not a length.
constexpr size_t kLongestBulk = 512UL * 1024 * 1024;
// hiredis drops consumed bytes once this many have gathered; the same here,
// so that the buffer does not grow with the backlog.
constexpr size_t kCompactAt = 1024;

// "$<length>\r\n<bytes>\r\n" at *at in bytes.
InPlace bulk(std::string_view bytes, size_t *at, std::string_view *out) noexcept {
    size_t p = *at;
    if (p >= bytes.size()) {
        return InPlace::partial;
    }
    if (bytes[p] != '$') {
        return InPlace::other;
    }
    ++p;
    size_t length = 0;
    const size_t digits_start = p;
    for (;; ++p) {
        if (p >= bytes.size()) {
            return InPlace::partial;
        }
        const char c = bytes[p];
        if (c < '0' || c > '9') {
            break;
        }
        length = length * 10 + static_cast<size_t>(c - '0');
        if (length > kLongestBulk) {
            return InPlace::other;
        }
    }
    if (p == digits_start) {
        return InPlace::other; // "$-1" and the like
    }
    if (bytes.size() - p < kEnd.size()) {
        return InPlace::partial;
    }
    if (bytes.substr(p, kEnd.size()) != kEnd) {
        return InPlace::other;
    }
    p += kEnd.size();
    if (bytes.size() - p < length + kEnd.size()) {
        return InPlace::partial;
    }
    if (bytes.substr(p + length, kEnd.size()) != kEnd) {
        return InPlace::other;
    }
    *out = bytes.substr(p, length);
    *at = p + length + kEnd.size();
    return InPlace::message;
}

// Drops the bytes already delivered. Only before the next frame is read:
// the views of the last one point into the bytes that move.
void compact(redisReader *reader) noexcept {
    if (reader->pos >= kCompactAt) {
        // pos is below 1 KiB plus one frame, and a frame is below 2 GiB.
        sdsrange(reader->buf, static_cast<int>(reader->pos), -1);
        reader->pos = 0;
        reader->len = sdslen(reader->buf);
    }
}

} // namespace

InPlace next_pmessage(redisReader *reader, PmessageView &view) noexcept {
    if (reader->err != 0 || reader->ridx != -1) {
        return InPlace::other;
    }
    compact(reader);
    const std::string_view bytes(reader->buf + reader->pos, reader->len - reader->pos);
    if (bytes.size() < kHeader.size()) {
        return kHeader.starts_with(bytes) ? InPlace::partial : InPlace::other;
    }
    if (!bytes.starts_with(kHeader)) {
        return InPlace::other;
    }
    size_t at = kHeader.size();
    for (std::string_view *part : {&view.pattern, &view.channel, &view.event}) {
        const InPlace got = bulk(bytes, &at, part);
        if (got != InPlace::message) {
            return got;
        }
    }
    reader->pos += at;
    return InPlace::message;
}

} // namespace tukredis
