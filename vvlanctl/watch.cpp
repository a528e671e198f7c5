// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl watch: the keyspace events of both databases, one decoded line
// each, as they happen.
#include <poll.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>

#include "args.h"
#include "commands.h"
#include "event_text.h"
#include "ports.h"
#include "printable.h"
#include "snapshot.h"
#include "wire/key_families.h"

namespace {

volatile std::sig_atomic_t g_stop = 0;

void on_signal(int) {
    g_stop = 1;
}

// Without SA_RESTART, so a blocked poll returns at once.
void catch_stop_signals() {
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
}

std::string timestamp() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char buf[32];
    const std::size_t n = std::strftime(buf, sizeof buf, "%H:%M:%S", &local);
    std::snprintf(buf + n, sizeof buf - n, ".%03ld", now.tv_nsec / 1000000);
    return buf;
}

// Every family's keys start with "/bri"; the debug key is the one other.
const char *const PATTERNS[] = {"__keyspace@0__:/bri*", "__keyspace@1__:/bri*",
                                "__keyspace@0__:debugDovVVlan"};

enum class next { REPLY, STOPPED, LOST };

// The next reply of the subscription, waiting for it in poll() so that a
// signal ends the wait.
next read_reply(redisContext *c, reply_ptr *out) {
    while (g_stop == 0) {
        void *raw = nullptr;
        if (redisGetReplyFromReader(c, &raw) != REDIS_OK) {
            return next::LOST;
        }
        if (raw != nullptr) {
            out->reset(static_cast<redisReply *>(raw));
            return next::REPLY;
        }
        pollfd p{c->fd, POLLIN, 0};
        const int r = poll(&p, 1, -1);
        if (r < 0) {
            if (errno == EINTR) {
                continue;
            }
            return next::LOST;
        }
        if (redisBufferRead(c) != REDIS_OK) {
            return next::LOST;
        }
    }
    return next::STOPPED;
}

// "__keyspace@<db>__:<key>"
bool split_channel(const std::string &channel, int *db, std::string *key) {
    const std::string head = "__keyspace@";
    const std::size_t end = channel.find("__:");
    if (channel.rfind(head, 0) != 0 || end == std::string::npos || end <= head.size()) {
        return false;
    }
    *db = std::atoi(channel.substr(head.size(), end - head.size()).c_str());
    *key = channel.substr(end + 3);
    return true;
}

} // namespace

int cmd_watch(const tool_context &t) {
    uint32_t count = 0; // 0: until a signal
    std::string why;
    const auto &a = t.args;
    if (!a.empty()) {
        if (a[0] != "--count") {
            return fail(t, EXIT_USAGE, "ARGUMENT \"" + a[0] + "\" is not --count");
        }
        if (a.size() != 2) {
            return fail(t, EXIT_USAGE, "usage: watch [--count N]");
        }
        if (!arg_number("N", a[1], 1, 0x7fffffff, &count, &why)) {
            return fail(t, EXIT_USAGE, why);
        }
    }
    if (!ports_init(&why)) {
        return fail(t, EXIT_CONNECT, why);
    }
    const auto fetcher = connect_or_report(t);
    if (!fetcher) {
        return EXIT_CONNECT;
    }
    const auto sub = connect_or_report(t);
    if (!sub) {
        return EXIT_CONNECT;
    }
    snapshot s;
    if (!fetcher->enable_keyspace_events() || !read_snapshot(*fetcher, &s)) {
        return lost(t, *fetcher);
    }
    event_context ctx;
    for (const oui_slot &o : s.oui_slots) {
        ctx.slots[o.slot] = {o.mac(), o.mask()};
    }
    ctx.fetch = [&](int db, const std::string &key) { return fetcher->get(db, key); };

    catch_stop_signals();
    redisContext *c = sub->raw();
    // No time limit on a subscription: it may be quiet for hours.
    redisSetTimeout(c, timeval{0, 0});
    // Named, so that an operator (or a test) can tell it from the daemon's.
    redisAppendCommand(c, "CLIENT SETNAME vvlanctl-watch");
    for (const char *p : PATTERNS) {
        redisAppendCommand(c, "PSUBSCRIBE %s", p);
    }
    for (int done = 0; done == 0;) {
        if (redisBufferWrite(c, &done) != REDIS_OK) {
            return fail(t, EXIT_CONNECT, "the subscription was refused or lost");
        }
    }
    for (std::size_t i = 0; i < std::size(PATTERNS) + 1; ++i) {
        reply_ptr r;
        const next n = read_reply(c, &r);
        if (n == next::STOPPED) {
            return EXIT_FINE;
        }
        if (n == next::LOST || r->type == REDIS_REPLY_ERROR) {
            return fail(t, EXIT_CONNECT, "the subscription was refused or lost");
        }
    }
    std::fprintf(stderr, "vvlanctl: watching %s\n", t.address.describe().c_str());
    std::fflush(stderr);

    uint32_t seen = 0;
    while (count == 0 || seen < count) {
        reply_ptr r;
        const next n = read_reply(c, &r);
        if (n == next::STOPPED) {
            break;
        }
        if (n == next::LOST) {
            return fail(t, EXIT_CONNECT, "lost the connection to " + t.address.describe());
        }
        if (r->type != REDIS_REPLY_ARRAY || r->elements != 4) {
            continue;
        }
        int db = 0;
        std::string key;
        const std::string channel(r->element[2]->str, r->element[2]->len);
        const std::string event(r->element[3]->str, r->element[3]->len);
        if (!split_channel(channel, &db, &key)) {
            continue;
        }
        const std::string line = event_line(ctx, db, event, key);
        std::printf("%s %s\n", timestamp().c_str(), printable(line).c_str());
        std::fflush(stdout);
        ++seen;
    }
    return EXIT_FINE;
}
