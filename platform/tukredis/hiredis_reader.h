// SPDX-License-Identifier: BSD-3-Clause
// Everything the bus library knows of hiredis beyond its documented calls,
// in one place, so that a new hiredis is checked here and nowhere else:
//
//   - the reply-object table: hiredis 1.0 widened createArray's count from
//     int to size_t and added createDouble and createBool (RESP3 types,
//     which a RESP2 connection never receives, but the table must be whole);
//   - the reader's buffer: the in-place pmessage reader looks at the bytes
//     the reader holds (buf, pos, len), at whether it is between replies
//     (err, ridx) and drops consumed bytes with sdsrange, as the reader
//     itself does. These are fields of the public struct redisReader, not
//     calls, and no hiredis promises them: verified with 0.14.1, 1.2.0 and
//     1.3.0, and checked below at compile time.
//
// Another major version stops the build here instead of miscompiling.
#pragma once

// hiredis 0.14 declares its string functions without C linkage, and
// hiredis.h includes them outside its own extern "C": they are declared here
// first, so that the header's guard keeps them C.
extern "C" {
#include <hiredis/sds.h>
}

#include <hiredis/hiredis.h>
#include <hiredis/read.h>

#include <cstddef>
#include <string_view>
#include <type_traits>

#if !defined(HIREDIS_MAJOR) || !defined(HIREDIS_MINOR)
#error "hiredis.h does not say its version (HIREDIS_MAJOR, HIREDIS_MINOR)"
#elif HIREDIS_MAJOR == 0 && HIREDIS_MINOR < 14
#error "hiredis older than 0.14 is not supported: the bus library was verified with 0.14, 1.2, 1.3"
#elif HIREDIS_MAJOR > 1
#error                                                                                             \
    "hiredis 2 or later: the bus library was verified with 0.14, 1.2, 1.3 only; check hiredis_reader.h against its read.h"
#endif

namespace tukredis::hiredis {

#if HIREDIS_MAJOR == 0
using array_count = int;
#else
using array_count = size_t;
#endif

// The table for a builder B with static string, array, integer, real, nil,
// boolean and release functions of hiredis's signatures.
template <typename B>
constexpr redisReplyObjectFunctions reply_functions() noexcept {
#if HIREDIS_MAJOR == 0
    return {B::string, B::array, B::integer, B::nil, B::release};
#else
    return {B::string, B::array, B::integer, B::real, B::nil, B::boolean, B::release};
#endif
}

// The fields read and written below, as verified.
static_assert(std::is_same_v<decltype(redisReader::buf), sds>);
static_assert(std::is_same_v<decltype(redisReader::pos), size_t>);
static_assert(std::is_same_v<decltype(redisReader::len), size_t>);
static_assert(std::is_same_v<decltype(redisReader::err), int>);
static_assert(std::is_same_v<decltype(redisReader::ridx), int>);

// hiredis drops consumed bytes once this many have gathered (read.c); the
// same here, so that the buffer does not grow with the backlog.
inline constexpr size_t COMPACT_AT = 1024;

// No half-read reply and no error: the next reply starts at pos.
inline bool between_replies(const redisReader *reader) noexcept {
    return reader->err == 0 && reader->ridx == -1;
}

// The bytes received and not yet read.
inline std::string_view unread(const redisReader *reader) noexcept {
    return {reader->buf + reader->pos, reader->len - reader->pos};
}

// n bytes of unread() were read here.
inline void consume(redisReader *reader, size_t n) noexcept {
    reader->pos += n;
}

// Drops the bytes already read, as hiredis does before a reply. Only between
// replies: views of the last one point into the bytes that move.
inline void compact(redisReader *reader) noexcept {
    if (reader->pos >= COMPACT_AT) {
        // pos is below 1 KiB plus one frame, and a frame is below 2 GiB.
        sdsrange(reader->buf, static_cast<int>(reader->pos), -1);
        reader->pos = 0;
        reader->len = sdslen(reader->buf);
    }
}

} // namespace tukredis::hiredis
