// SPDX-License-Identifier: BSD-3-Clause
// The subscription connection: one connection carries every row of the table,
// both databases included, so that handlers see notifications in the order
// the server executed the commands.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>

#include "api_guard.h"
#include "command.h"
#include "event_map.h"
#include "log.h"
#include "pmessage_view.h"
#include "reply.h"
#include "session.h"
#include "stats.h"

namespace tukredis {
namespace {

constexpr std::chrono::milliseconds DEFAULT_PING_INTERVAL{10000};
constexpr std::chrono::milliseconds LONGEST_PING_INTERVAL{24L * 3600 * 1000};

// How long the subscription connection may stay quiet before a PING checks
// that the server is still there; as long again without an answer and the
// connection counts as lost. Tests shorten it to notice a stopped server
// quickly.
std::chrono::milliseconds ping_interval() {
    const char *text = std::getenv("TUKREDIS_PING_INTERVAL_MS");
    if (text == nullptr || text[0] == '\0') {
        return DEFAULT_PING_INTERVAL;
    }
    char *end = nullptr;
    errno = 0;
    const long long ms = std::strtoll(text, &end, 10);
    if (errno != 0 || *end != '\0' || ms <= 0 || ms > LONGEST_PING_INTERVAL.count()) {
        static bool reported = false;
        if (!reported) {
            reported = true;
            report("TUKREDIS_PING_INTERVAL_MS \"%s\" is not a positive number of milliseconds; "
                   "using %lld",
                   text, static_cast<long long>(DEFAULT_PING_INTERVAL.count()));
        }
        return DEFAULT_PING_INTERVAL;
    }
    return std::chrono::milliseconds(ms);
}

std::string channel_prefix(uint32_t db) {
    return "__keyspace@" + std::to_string(db) + "__:";
}

rate_limit &drop_reports() {
    static rate_limit *const limit = new rate_limit(std::chrono::seconds(10));
    return *limit;
}

void report_dropped(size_t length, std::string_view key) {
    report_limited(drop_reports(), "not delivered: a key of %zu bytes%s", length,
                   key.find('\0') != std::string_view::npos ? " with a NUL byte" : "");
}

// One pmessage: [pmessage, pattern, channel, event]. The row is found by the
// exact pattern the server names, which carries the database; every row with
// that pattern gets the notification. Nothing here allocates: the views point
// into the reader's buffer or the frame, and the record is on the stack.
// channel_length is the channel's true length, longer than channel when only
// part of it was kept.
void deliver(const session_state &s, std::string_view pattern, std::string_view channel,
             size_t channel_length, std::string_view event) {
    bool checked = false;
    std::string_view key;
    int32_t code = NOT_DELIVERED;
    const size_t rows = std::min(s.channel_patterns.size(), static_cast<size_t>(s.rows));
    for (size_t row = 0; row < rows; ++row) {
        if (s.channel_patterns[row] != pattern) {
            continue;
        }
        const tukredis_sub_row &entry = s.table[row];
        if (!checked) {
            checked = true;
            const std::string_view prefix = pattern.substr(0, s.prefix_lengths[row]);
            if (!channel.starts_with(prefix)) {
                return;
            }
            key = channel.substr(prefix.size());
            code = event_code(event, key);
            if (code == NOT_DELIVERED) {
                return;
            }
            if (channel.size() < channel_length || !deliverable_key(key)) {
                count(stats().dropped);
                report_dropped(channel_length - prefix.size(), key);
                return;
            }
        }
        lazy_reply reply(static_cast<int32_t>(entry.db), key);
        tukredis_pmsg pmsg = make_pmsg(static_cast<int32_t>(entry.db), key, code, reply);
        {
            // Writes the handler makes are sent behind its notification
            // without waiting for their replies; see defer_writes.
            const defer_writes defer;
            entry.handler(&pmsg);
        }
        count(stats().delivered);
    }
}

// A reply hiredis parsed: a pmessage that is unusual in some way (a long
// channel, which the frame keeps only in part), the answer to our PING
// (["pong", ""] in subscribed mode) or a confirmation.
void dispatch(const session_state &s, const frame_buf &reply) {
    if (!reply.is_push("pmessage") || reply.elements != 4 || reply.nested) {
        return;
    }
    for (size_t i = 1; i < 4; ++i) {
        if (reply.parts[i].type != REDIS_REPLY_STRING) {
            return;
        }
    }
    if (!reply.parts[1].whole() || !reply.parts[3].whole()) {
        return;
    }
    deliver(s, reply.parts[1].kept(), reply.parts[2].kept(), reply.parts[2].length,
            reply.parts[3].kept());
}

// Delivers every reply already read, pmessages in place and the rest through
// hiredis, in the order they came. False when the reader failed.
bool deliver_buffered(const session_state &s, redisContext *context) {
    for (;;) {
        pmessage_view view;
        switch (next_pmessage(context->reader, view)) {
        case in_place::MESSAGE:
            deliver(s, view.pattern, view.channel, view.channel.size(), view.event);
            continue;
        case in_place::PARTIAL:
            return true;
        case in_place::OTHER:
            break;
        }
        bool error = false;
        if (!next_frame(context, error)) {
            return !error;
        }
        dispatch(s, s.frame);
    }
}

// The writes the handlers left behind are sent and their replies read before
// the loop waits for more events, so that none stays in the buffer while the
// bus is quiet.
bool settle_writes() {
    std::string why;
    return command_connection().settle(why);
}

int32_t psubscribe() {
    session_state &s = session();
    if (s.table == nullptr) {
        report("tukredis_db_psubscrible: no table registered by tukredis_init");
        return -1;
    }
    if (!s.subscription) {
        return -1;
    }
    s.subscribed = false;
    s.early.clear();
    s.channel_patterns.clear();
    s.prefix_lengths.clear();
    for (int32_t row = 0; row < s.rows; ++row) {
        const std::string prefix = channel_prefix(s.table[row].db);
        s.channel_patterns.push_back(prefix + s.table[row].pattern);
        s.prefix_lengths.push_back(prefix.size());
    }
    // Every pattern in one command: the server subscribes them all at once,
    // so no event can fall between the subscriptions of two rows.
    std::vector<std::string_view> argv{"PSUBSCRIBE"};
    argv.insert(argv.end(), s.channel_patterns.begin(), s.channel_patterns.end());
    const std::string command = format_command(argv);
    redisContext *context = s.subscription.get();
    redisAppendFormattedCommand(context, command.data(), command.size());
    const io_deadline deadline(DEFAULT_COMMAND_TIMEOUT);
    std::string why;
    if (!flush_output(context, deadline, why)) {
        lose_subscription("subscribing: " + why);
        return -1;
    }
    // The server confirms each pattern, duplicates included.
    for (size_t confirmed = 0; confirmed < s.channel_patterns.size();) {
        if (!read_frame(context, deadline, why)) {
            lose_subscription("subscribing: " + why);
            return -1;
        }
        const frame_buf &reply = s.frame;
        if (reply.type == REDIS_REPLY_ERROR) {
            lose_subscription("subscription refused: " + std::string(reply.text()));
            return -1;
        }
        if (reply.is_push("psubscribe")) {
            ++confirmed;
        } else if (reply.is_push("pmessage")) {
            s.early.push_back(reply);
        }
    }
    s.subscribed = true;
    const unsigned code = s.subscribed_before ? 1U : 0U;
    s.subscribed_before = true;
    // The handlers the callback runs use the command connection; events
    // meanwhile wait on this one and are delivered by tukredis_pubsub.
    if (s.resync != nullptr) {
        {
            const defer_writes defer;
            s.resync(code);
        }
        // A write lost with the connection is not retried, as ever; the next
        // connection's re-synchronisation makes up for it.
        (void)settle_writes();
    }
    return 0;
}

int32_t serve() {
    session_state &s = session();
    if (!s.subscription || !s.subscribed) {
        return -1;
    }
    redisContext *context = s.subscription.get();
    const std::chrono::milliseconds interval = ping_interval();
    steady_clock::time_point quiet_since = steady_clock::now();
    steady_clock::time_point ping_sent_at{};
    bool ping_sent = false;
    bool output_pending = false;
    for (;;) {
        while (!s.early.empty()) {
            const frame_buf reply = s.early.front();
            s.early.pop_front();
            dispatch(s, reply);
        }
        // Everything already read is delivered before waiting again.
        if (!deliver_buffered(s, context)) {
            lose_subscription(context_error(context));
            return -1;
        }
        (void)settle_writes();

        const steady_clock::time_point due =
            ping_sent ? ping_sent_at + interval : quiet_since + interval;
        const steady_clock::time_point now = steady_clock::now();
        if (now >= due) {
            if (ping_sent) {
                lose_subscription("no answer to a ping within " + std::to_string(interval.count()) +
                                  " ms");
                return -1;
            }
            const std::string ping = format_command({"PING"});
            redisAppendFormattedCommand(context, ping.data(), ping.size());
            int done = 0;
            if (redisBufferWrite(context, &done) != REDIS_OK) {
                lose_subscription(context_error(context));
                return -1;
            }
            output_pending = done == 0;
            ping_sent = true;
            ping_sent_at = now;
            continue;
        }

        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(due - now).count();
        pollfd watched{context->fd, static_cast<short>(POLLIN | (output_pending ? POLLOUT : 0)), 0};
        const int ready = poll(&watched, 1, static_cast<int>(wait));
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            lose_subscription(std::string("poll: ") + std::strerror(errno));
            return -1;
        }
        if (ready == 0) {
            continue;
        }
        if ((watched.revents & POLLNVAL) != 0) {
            lose_subscription("socket closed");
            return -1;
        }
        if (output_pending && (watched.revents & POLLOUT) != 0) {
            int done = 0;
            if (redisBufferWrite(context, &done) != REDIS_OK) {
                lose_subscription(context_error(context));
                return -1;
            }
            output_pending = done == 0;
        }
        if ((watched.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            // End of file (server stopped, CLIENT KILL) and read errors end
            // the session here.
            if (redisBufferRead(context) != REDIS_OK) {
                lose_subscription(context_error(context));
                return -1;
            }
            quiet_since = steady_clock::now();
            ping_sent = false;
        }
    }
}

} // namespace
} // namespace tukredis

using namespace tukredis;

int32_t tukredis_db_psubscrible(void) {
    return c_entry<int32_t>(-1, [] { return psubscribe(); });
}

int32_t tukredis_pubsub(void) {
    return c_entry<int32_t>(-1, [] { return serve(); });
}
