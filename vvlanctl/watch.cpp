// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl watch: the keyspace events of both databases, one decoded line
// (or one JSON object) each, as they happen. It only reads: the server's
// keyspace-event flags are changed only when asked (--enable-events), since
// an operator's server may deny or rename CONFIG, or be shared.
#include <poll.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

#include "args.h"
#include "commands.h"
#include "event_text.h"
#include "json_writer.h"
#include "keyspace_channel.h"
#include "output.h"
#include "ports.h"
#include "printable.h"
#include "snapshot.h"
#include "stop_signals.h"
#include "timestamp.h"
#include "watch_filter.h"
#include "wire/key_families.h"
#include "wire/key_parse.h"

namespace {

struct watch_options {
    uint32_t count = 0; // 0: until a signal
    bool json = false;
    bool enable_events = false;
    watch_filter filter;
};

bool parse_options(const std::vector<std::string> &args, watch_options *o, std::string *why) {
    std::vector<std::string> rest;
    if (!parse_watch_filter(args, &o->filter, &rest, why)) {
        return false;
    }
    for (std::size_t i = 0; i < rest.size(); ++i) {
        const std::string &a = rest[i];
        if (a == "--json" || a == "-j") {
            o->json = true;
        } else if (a == "--enable-events") {
            o->enable_events = true;
        } else if (a == "--count") {
            if (i + 1 >= rest.size()) {
                *why = "missing arguments; usage: watch --count N";
                return false;
            }
            if (!arg_number("N", rest[++i], 1, 0x7fffffff, &o->count, why)) {
                return false;
            }
        } else {
            *why = "ARGUMENT \"" + a +
                   "\" is none of --count, --json, --enable-events, port, oui, family";
            return false;
        }
    }
    return true;
}

// The keyspace events the subscription needs: there, turned on when asked,
// or a refusal that says which flags are missing and how to set them. A
// server that will not show its configuration is taken at its word.
int check_events(const tool_context &t, const watch_options &o) {
    const auto probe = connect_or_report(t);
    if (!probe) {
        return EXIT_CONNECT;
    }
    std::string why;
    std::string wanted;
    const int status = check_keyspace_events(*probe, "watch", &why, &wanted);
    if (status == EXIT_FINE) {
        return EXIT_FINE;
    }
    if (o.enable_events) {
        return probe->set_keyspace_events(wanted) ? EXIT_FINE : lost(t, *probe);
    }
    return fail(t, status, why + " (or run vvlanctl watch --enable-events)");
}

// One event as a line of JSON: the fields of the text line, apart.
std::string json_line(const std::string &stamp, int db, const std::string &event,
                      const std::string &key, const std::string &text) {
    const auto f = family_of_key(key);
    const auto port = port_of_key(key);
    std::string out = "{\"schema_version\":1,\"time\":" + json_quote(stamp);
    out += ",\"db\":" + std::to_string(db);
    out += ",\"event\":" + json_quote(event);
    out += ",\"key\":" + json_quote(key);
    out += ",\"family\":";
    out += f ? json_quote(family_decl(*f).name) : "null";
    out += ",\"port\":";
    out += port ? std::to_string(*port) : "null";
    out += ",\"text\":" + json_quote(text);
    out += "}";
    return out;
}

enum class next { REPLY, STOPPED, LOST };

// The next reply of the subscription, waiting for it in poll() so that a
// signal ends the wait.
next read_reply(redisContext *c, reply_ptr *out) {
    while (!stop_requested()) {
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

} // namespace

int cmd_watch(const tool_context &t) {
    watch_options o;
    std::string why;
    if (!parse_options(t.args, &o, &why)) {
        return fail(t, EXIT_USAGE, why);
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
    if (const int events = check_events(t, o); events != EXIT_FINE) {
        return events;
    }
    if (!read_snapshot(*fetcher, &s)) {
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
    for (const char *p : KEYSPACE_PATTERNS) {
        redisAppendCommand(c, "PSUBSCRIBE %s", p);
    }
    for (int done = 0; done == 0;) {
        if (redisBufferWrite(c, &done) != REDIS_OK) {
            return fail(t, EXIT_CONNECT, "the subscription was refused or lost");
        }
    }
    for (std::size_t i = 0; i < std::size(KEYSPACE_PATTERNS) + 1; ++i) {
        reply_ptr r;
        const next n = read_reply(c, &r);
        if (n == next::STOPPED) {
            return EXIT_FINE;
        }
        if (n == next::LOST || r->type == REDIS_REPLY_ERROR) {
            return fail(t, EXIT_CONNECT, "the subscription was refused or lost");
        }
    }
    std::fprintf(stderr, "vvlanctl: watching %s\n", printable(t.address.describe()).c_str());
    std::fflush(stderr);

    uint32_t seen = 0;
    while (o.count == 0 || seen < o.count) {
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
        // Every event keeps the OUI table current, shown or not.
        const std::string line = event_line(ctx, db, event, key);
        if (!o.filter.matches(key)) {
            continue;
        }
        const std::string stamp = timestamp_now();
        if (o.json) {
            std::printf("%s\n", json_line(stamp, db, event, key, line).c_str());
        } else {
            std::printf("%s %s\n", stamp.c_str(), printable(line).c_str());
        }
        // A reader that went away (| head -1) ends the tool here.
        if (!flush_output()) {
            return EXIT_UNKNOWN;
        }
        ++seen;
    }
    return EXIT_FINE;
}
