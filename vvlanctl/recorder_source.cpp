// SPDX-License-Identifier: BSD-3-Clause
#include "recorder_source.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <string_view>

#include "keyspace_channel.h"
#include "presence.h"
#include "printable.h"
#include "size_args.h"
#include "wire/key_families.h"
#include "wire/key_parse.h"

namespace {

// Events after which the key is gone: nothing to read.
bool key_gone(std::string_view event) {
    return event == "del" || event == "expired" || event == "evicted" || event == "rename_from" ||
           event == "move_from";
}

// Events that change a key's time-to-live and not its value.
bool ttl_changed(std::string_view event) {
    return event == "expire" || event == "persist";
}

// So many events are read and looked up at a time: large enough that the
// round trip is shared by many, small enough to keep the memory flat.
constexpr std::size_t BATCH = 4096;
// Events whose values are still owed, at most: past it the subscription
// waits in the server (whose output limit for subscribers then decides),
// so that a storm cannot grow the recorder without bound.
constexpr std::size_t MAX_IN_FLIGHT_BATCHES = 64;

rec::presence_state presence_of(daemon_state s) {
    switch (s) {
    case daemon_state::subscribed:
        return rec::presence_state::subscribed;
    case daemon_state::connected:
        return rec::presence_state::connected;
    case daemon_state::absent:
        return rec::presence_state::absent;
    case daemon_state::unknown:
        break;
    }
    return rec::presence_state::unknown;
}

// Of several events of one key taken together, only the last is read: a
// read made now gives each of them the value after the last. The others are
// marked unread rather than given a value they never held.
void supersede(const std::vector<pending_event> &events, std::vector<rec::record> *records) {
    // Walked from the last event back: an event whose key was seen already
    // is not the last of it. The set of keys seen is an open-addressed
    // table of event indexes, at least twice the batch (BATCH is a power of
    // two), so that a storm costs no allocation per event.
    static std::array<uint32_t, 2 * BATCH> seen;
    std::size_t size = 2;
    while (size < 2 * events.size()) {
        size *= 2;
    }
    std::fill_n(seen.begin(), size, 0);
    const std::size_t mask = size - 1;
    for (std::size_t i = events.size(); i-- > 0;) {
        const pending_event &e = events[i];
        std::size_t h =
            (std::hash<std::string_view>{}(e.key) ^ static_cast<std::size_t>(e.db)) & mask;
        bool later = false;
        while (seen[h] != 0) {
            const pending_event &o = events[seen[h] - 1];
            if (o.db == e.db && o.key == e.key) {
                later = true;
                break;
            }
            h = (h + 1) & mask;
        }
        if (later) {
            if (!key_gone(e.event)) {
                (*records)[i].kind = rec::value_kind::superseded;
            }
        } else {
            seen[h] = static_cast<uint32_t>(i + 1);
        }
    }
}

} // namespace

rec::record recorder_source::stamped(rec::record_type type) const {
    rec::record r;
    r.type = type;
    r.mono_us = rec_clock::mono_us();
    r.wall_us = rec_clock::wall_us();
    return r;
}

bool recorder_source::connect(std::string *why) {
    sub_ = connection::open(t_.address, t_.who, why);
    values_ = sub_ ? connection::open(t_.address, t_.who, why) : nullptr;
    presence_ = values_ ? connection::open(t_.address, t_.who, why) : nullptr;
    if (!presence_) {
        sub_.reset();
        values_.reset();
        return false;
    }
    values_db_ = -1;
    redisContext *c = sub_->raw();
    // Named, so that an operator (and the presence check) can tell it from
    // the daemon's; the subscription waits for hours on a quiet switch.
    redisAppendCommand(c, "CLIENT SETNAME vvlanctl-record");
    for (const char *p : KEYSPACE_PATTERNS) {
        redisAppendCommand(c, "PSUBSCRIBE %s", p);
    }
    for (std::size_t i = 0; i < std::size(KEYSPACE_PATTERNS) + 1; ++i) {
        void *raw = nullptr;
        if (redisGetReply(c, &raw) != REDIS_OK) {
            *why = std::string("the subscription was lost: ") + c->errstr;
            return false;
        }
        const reply_ptr r(static_cast<redisReply *>(raw));
        // A refused name is no reason not to record.
        if (r->type == REDIS_REPLY_ERROR && i > 0) {
            *why = "the subscription was refused: " + std::string(r->str, r->len);
            return false;
        }
    }
    redisSetTimeout(c, timeval{0, 0});
    return true;
}

int recorder_source::start(std::string *why) {
    {
        // A connection of its own: a refused CONFIG would poison any other.
        const auto probe = connection::open(t_.address, t_.who, why);
        if (!probe) {
            *why = "cannot connect to " + t_.address.describe() + ": " + *why;
            return EXIT_CONNECT;
        }
        std::string wanted;
        if (check_keyspace_events(*probe, "record", why, &wanted) != EXIT_FINE) {
            *why += "; record never writes to the server";
            return EXIT_NOT_DONE;
        }
    }
    if (!connect(why)) {
        *why = "cannot subscribe on " + t_.address.describe() + ": " + *why;
        return EXIT_CONNECT;
    }
    linked_ = true;
    return EXIT_FINE;
}

// Reads sent for the events of b (a snapshot's keys have no event: their
// time-to-live is read too).
bool recorder_source::send_reads(const std::vector<pending_event> &events, batch *b) {
    redisContext *c = values_->raw();
    for (std::size_t i = 0; i < events.size(); ++i) {
        const pending_event &e = events[i];
        if (key_gone(e.event) || b->records[i].kind == rec::value_kind::superseded) {
            continue;
        }
        if (e.db != values_db_) {
            redisAppendCommand(c, "SELECT %d", e.db);
            b->reads.push_back({want::SELECT, 0});
            values_db_ = e.db;
        }
        redisAppendCommand(c, "GET %b", e.key.data(), e.key.size());
        b->reads.push_back({want::VALUE, i});
        if (e.event.empty() || ttl_changed(e.event)) {
            redisAppendCommand(c, "PTTL %b", e.key.data(), e.key.size());
            b->reads.push_back({want::TTL, i});
        }
    }
    for (int done = 0; done == 0;) {
        if (redisBufferWrite(c, &done) != REDIS_OK) {
            return false;
        }
    }
    return true;
}

void recorder_source::answer(batch &b, const redisReply &reply) {
    const value_read &read = b.reads[b.answered++];
    rec::record &r = b.records[read.record];
    if (read.what == want::VALUE) {
        if (reply.type == REDIS_REPLY_STRING) {
            r.kind = rec::value_kind::string;
            r.value.assign(reply.str, reply.len);
        } else if (reply.type == REDIS_REPLY_ERROR) {
            // Another type than a string: a foreign writer's key.
            r.kind = rec::value_kind::other_type;
        }
    } else if (read.what == want::TTL && reply.type == REDIS_REPLY_INTEGER) {
        r.ttl_ms = reply.integer >= 0 ? reply.integer : rec::NO_TTL;
    }
}

void recorder_source::emit_answered(rec::segment_writer &out) {
    while (!in_flight_.empty() && in_flight_.front().answered == in_flight_.front().reads.size()) {
        for (const rec::record &r : in_flight_.front().records) {
            out.add(r);
        }
        in_flight_.pop_front();
    }
}

void recorder_source::take_answers(rec::segment_writer &out) {
    redisContext *c = values_->raw();
    if (redisBufferRead(c) != REDIS_OK) {
        lose(out, c->errstr[0] != '\0' ? c->errstr : "the server closed the connection");
        return;
    }
    for (;;) {
        void *raw = nullptr;
        if (redisGetReplyFromReader(c, &raw) != REDIS_OK) {
            lose(out, c->errstr);
            return;
        }
        if (raw == nullptr) {
            break;
        }
        const reply_ptr reply(static_cast<redisReply *>(raw));
        for (batch &b : in_flight_) {
            if (b.answered < b.reads.size()) {
                answer(b, *reply);
                break;
            }
        }
    }
    emit_answered(out);
}

void recorder_source::snapshot(rec::snapshot_reason reason, rec::segment_writer &out) {
    rec::record begin = stamped(rec::record_type::snapshot_begin);
    begin.state = static_cast<uint8_t>(reason);
    std::vector<pending_event> keys;
    for (int db : {DB_STATE, DB_CONFIG}) {
        std::vector<std::string> found;
        if (!presence_->scan(db, "/bri*", &found)) {
            lose(out, presence_->error());
            return;
        }
        if (db == DB_STATE) {
            found.push_back(prefix_of(key_family::debug_level));
        }
        std::sort(found.begin(), found.end());
        for (std::string &k : found) {
            if (family_of_key(k) && k.size() <= rec::MAX_KEY) {
                keys.push_back({db, std::move(k), ""});
            }
        }
    }
    batch b;
    b.records.resize(keys.size());
    if (!send_reads(keys, &b)) {
        lose(out, values_->raw()->errstr);
        return;
    }
    redisContext *c = values_->raw();
    while (b.answered < b.reads.size()) {
        void *raw = nullptr;
        if (redisGetReply(c, &raw) != REDIS_OK) {
            lose(out, c->errstr);
            return;
        }
        answer(b, *reply_ptr(static_cast<redisReply *>(raw)));
    }
    out.add(begin);
    uint64_t count = 0;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        rec::record &r = b.records[i];
        if (r.kind == rec::value_kind::absent) {
            continue; // gone between the SCAN and the GET
        }
        if (r.kind == rec::value_kind::other_type) {
            const reply_ptr type = values_->command(keys[i].db, {"TYPE", keys[i].key});
            r.value =
                type && type->type == REDIS_REPLY_STATUS ? std::string(type->str, type->len) : "?";
            values_db_ = keys[i].db;
        }
        r.type = rec::record_type::snapshot_key;
        r.mono_us = begin.mono_us;
        r.wall_us = begin.wall_us;
        r.db = keys[i].db;
        r.key = std::move(keys[i].key);
        out.add(r);
        ++count;
    }
    rec::record end = stamped(rec::record_type::snapshot_end);
    end.count = count;
    out.add(end);
}

void recorder_source::take_events(rec::segment_writer &out, uint64_t limit) {
    redisContext *c = sub_->raw();
    if (redisBufferRead(c) != REDIS_OK) {
        lose(out, c->errstr[0] != '\0' ? c->errstr : "the server closed the connection");
        return;
    }
    for (bool more = true; more;) {
        std::vector<pending_event> events;
        events.reserve(BATCH);
        while (events.size() < BATCH) {
            void *raw = nullptr;
            if (redisGetReplyFromReader(c, &raw) != REDIS_OK) {
                lose(out, c->errstr);
                return;
            }
            if (raw == nullptr) {
                more = false;
                break;
            }
            const reply_ptr r(static_cast<redisReply *>(raw));
            if (r->type != REDIS_REPLY_ARRAY || r->elements != 4) {
                continue;
            }
            pending_event e;
            const std::string_view channel(r->element[2]->str, r->element[2]->len);
            // A key longer than a reader accepts is no key of the daemon's
            // (it builds them in 128 bytes): a hostile writer's, left out.
            if (!split_channel(channel, &e.db, &e.key) || !family_of_key(e.key) ||
                e.key.size() > rec::MAX_KEY || r->element[3]->len > rec::MAX_TEXT) {
                continue;
            }
            e.event.assign(r->element[3]->str, r->element[3]->len);
            events.push_back(std::move(e));
        }
        if (limit != 0 && taken_ + events.size() > limit) {
            events.resize(static_cast<std::size_t>(limit - taken_));
            more = false;
        }
        if (events.empty()) {
            break;
        }
        batch b;
        b.records.resize(events.size());
        supersede(events, &b.records);
        if (!send_reads(events, &b)) {
            lose(out, values_->raw()->errstr);
            return;
        }
        const rec::record now = stamped(rec::record_type::event);
        for (std::size_t i = 0; i < events.size(); ++i) {
            rec::record &r = b.records[i];
            r.type = rec::record_type::event;
            r.mono_us = now.mono_us;
            r.wall_us = now.wall_us;
            r.db = events[i].db;
            r.key = std::move(events[i].key);
            r.event = std::move(events[i].event);
        }
        taken_ += events.size();
        in_flight_.push_back(std::move(b));
    }
    emit_answered(out);
}

void recorder_source::serve(int64_t until_us, rec::segment_writer &out, uint64_t limit) {
    const int64_t left_ms = (until_us - rec_clock::mono_us()) / 1000;
    const int timeout = static_cast<int>(std::clamp<int64_t>(left_ms, 0, 1000));
    pollfd fds[2] = {{sub_->raw()->fd, POLLIN, 0}, {values_->raw()->fd, POLLIN, 0}};
    const bool full = (limit != 0 && taken_ >= limit) || in_flight_.size() >= MAX_IN_FLIGHT_BATCHES;
    // At the count, or with too much owed, the subscription is left alone
    // and the reads are awaited.
    if (poll(full ? fds + 1 : fds, full ? 1 : 2, timeout) <= 0) {
        return;
    }
    if (!full && (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        take_events(out, limit);
    }
    if (linked_ && (fds[full ? 0 : 1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        take_answers(out);
    }
}

void recorder_source::finish(rec::segment_writer &out, uint64_t limit) {
    // What the server sent before the stop is in the socket already: a
    // recording stopped right after a write keeps its events.
    while (linked_ && (limit == 0 || taken_ < limit)) {
        pollfd p{sub_->raw()->fd, POLLIN, 0};
        if (poll(&p, 1, 0) <= 0) {
            break;
        }
        take_events(out, limit);
    }
    drain(out);
}

void recorder_source::drain(rec::segment_writer &out) {
    while (linked_ && !in_flight_.empty()) {
        pollfd p{values_->raw()->fd, POLLIN, 0};
        if (poll(&p, 1, 10000) <= 0) {
            lose(out, "the server did not answer the value reads");
            return;
        }
        take_answers(out);
    }
}

void recorder_source::presence_if_due(int64_t now_us, int64_t interval_us,
                                      rec::segment_writer &out) {
    if (!linked_ || now_us < next_presence_us_) {
        return;
    }
    next_presence_us_ = now_us + interval_us;
    const daemon_presence p = read_presence(*presence_);
    if (presence_->failed()) {
        lose(out, presence_->error());
        return;
    }
    const int state = static_cast<int>(presence_of(p.state));
    std::string text = p.state == daemon_state::unknown ? p.refusal : p.address.value_or("");
    if (p.name) {
        text += " name=" + *p.name;
    }
    if (state == last_presence_) {
        return;
    }
    last_presence_ = state;
    last_presence_text_ = text;
    rec::record r = stamped(rec::record_type::presence);
    r.state = static_cast<uint8_t>(state);
    r.text = text;
    out.add(r);
}

void recorder_source::after_rotation(rec::segment_writer &out) {
    if (out.segment() == segment_) {
        return;
    }
    segment_ = out.segment();
    if (last_presence_ >= 0) {
        rec::record r = stamped(rec::record_type::presence);
        r.state = static_cast<uint8_t>(last_presence_);
        r.text = last_presence_text_;
        out.add(r);
    }
}

void recorder_source::lose(rec::segment_writer &out, const std::string &why) {
    if (!linked_) {
        return;
    }
    linked_ = false;
    // Events whose values were not read before the loss: the reconnect's
    // snapshot says what the keys hold.
    for (batch &b : in_flight_) {
        for (std::size_t i = b.answered; i < b.reads.size(); ++i) {
            if (b.reads[i].what == want::VALUE) {
                b.records[b.reads[i].record].kind = rec::value_kind::superseded;
            }
        }
        b.answered = b.reads.size();
    }
    emit_answered(out);
    rec::record r = stamped(rec::record_type::link);
    r.state = static_cast<uint8_t>(rec::link_state::lost);
    r.text = why;
    out.add(r);
    std::fprintf(stderr, "vvlanctl: record: lost the connection to %s: %s; reconnecting\n",
                 printable(t_.address.describe()).c_str(), printable(why).c_str());
    std::fflush(stderr);
    sub_.reset();
    values_.reset();
    presence_.reset();
}

void recorder_source::reconnect(rec::segment_writer &out, const std::function<bool()> &stop) {
    // A second between tries, in slices, so that a signal is not kept
    // waiting.
    for (int slice = 0; slice < 10 && !stop(); ++slice) {
        poll(nullptr, 0, 100);
    }
    std::string why;
    if (stop() || !connect(&why)) {
        return;
    }
    linked_ = true;
    rec::record r = stamped(rec::record_type::link);
    r.state = static_cast<uint8_t>(rec::link_state::restored);
    out.add(r);
    std::fprintf(stderr, "vvlanctl: record: connected to %s again\n",
                 printable(t_.address.describe()).c_str());
    std::fflush(stderr);
    snapshot(rec::snapshot_reason::reconnect, out);
    // Whatever the daemon did meanwhile, its state now.
    last_presence_ = -1;
    next_presence_us_ = 0;
}
