// SPDX-License-Identifier: BSD-3-Clause
// Notifications read in place. A backlog of keyspace events is almost all
// pmessage frames, and hiredis's reader spends most of a frame's cost in its
// per-element callbacks and copies. The frame's three strings are found here
// by scanning the bytes the reader already holds, and handed on as views;
// every other reply, and anything unusual in a pmessage, is left to hiredis.
#pragma once

#include <hiredis/read.h>
#include <string_view>

namespace tukredis {

// [pmessage, pattern, channel, event], viewed in the reader's buffer. Valid
// until the next call of next_pmessage, the next read from the socket or the
// next reply hiredis parses.
struct pmessage_view {
    std::string_view pattern;
    std::string_view channel;
    std::string_view event;
};

enum class in_place {
    MESSAGE, // *view filled and the frame consumed
    OTHER,   // the next reply is not a plain pmessage: hiredis reads it
    PARTIAL, // a pmessage whose end has not arrived: read the socket again
};

// The next buffered reply, when it is a pmessage of three bulk strings. Only
// between replies: while hiredis holds half a reply it finishes it.
in_place next_pmessage(redisReader *reader, pmessage_view &view) noexcept;

} // namespace tukredis
