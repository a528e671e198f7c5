// SPDX-License-Identifier: BSD-3-Clause
// The subscription connection's replies, parsed into one fixed record instead
// of a hiredis reply tree. A backlog of notifications is read at the server's
// speed only if a notification costs no allocation: the default reply objects
// cost five allocations and frees per pmessage.
#pragma once

#include <cstddef>
#include <hiredis/hiredis.h>
#include <string>
#include <string_view>

#include "io.h"

namespace tukredis {

// One reply as it came: its type and, for an array, its first four elements
// (a pmessage is [pmessage, pattern, channel, event]). Strings are copied up
// to a bound that covers every deliverable channel; a longer one keeps its
// true length so that it can be reported, and never matches a row.
struct frame_buf {
    static constexpr size_t PARTS = 4;
    static constexpr size_t PART_BYTES = 320;
    // A larger array count is kept as this: it is only compared with small
    // ones, and must not wrap in a 32-bit long.
    static constexpr long MOST_ELEMENTS = 1L << 30;

    struct part_buf {
        int type = 0; // REDIS_REPLY_*; 0 when absent
        size_t length = 0;
        char bytes[PART_BYTES];

        // The bytes kept; shorter than length when the string was cut.
        std::string_view kept() const noexcept {
            return {bytes, length < PART_BYTES ? length : PART_BYTES};
        }
        bool whole() const noexcept { return length <= PART_BYTES; }
    };

    int type = 0;        // REDIS_REPLY_*
    long elements = 0;   // for an array
    bool nested = false; // an element was itself an array: not a pmessage
    part_buf parts[PARTS];

    void clear() noexcept;

    // The text of a string, status or error reply (whole or cut).
    std::string_view text() const noexcept { return parts[0].kept(); }

    // An array whose first element is the string word.
    bool is_push(std::string_view word) const noexcept;
};

// Makes context's reader build every reply into frame, which must outlive the
// context. To be installed between replies, never with one half read. The
// reader keeps its buffer once grown, so a steady stream reuses it.
void read_into(redisContext *context, frame_buf *frame) noexcept;

// The next reply from what the reader already holds: true with *frame filled,
// false when no whole reply is buffered. error is set when the reader failed
// (a protocol error); the connection is then unusable.
bool next_frame(redisContext *context, bool &error) noexcept;

// The next reply, waiting for it until deadline. False with why on a timeout
// or a failed connection, which must then be freed.
bool read_frame(redisContext *context, const io_deadline &deadline, std::string &why);

} // namespace tukredis
