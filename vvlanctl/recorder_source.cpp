// SPDX-License-Identifier: BSD-3-Clause
#include "recorder_source.h"

#include <poll.h>

#include <algorithm>
#include <cstdio>
#include <thread>

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

} // namespace

int recorder_source::fd() const {
    return sub_ ? sub_->raw()->fd : -1;
}

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
        const auto probe = connection::open(t_.address, t_.who, why);
        if (!probe) {
            *why = "cannot connect to " + t_.address.describe() + ": " + *why;
            return EXIT_CONNECT;
        }
        std::string missing;
        std::string wanted;
        if (!probe->missing_keyspace_events(&missing, &wanted)) {
            std::fprintf(stderr,
                         "vvlanctl: record: cannot read notify-keyspace-events (%s): recording "
                         "as if its flags K, g, $, x and e were on\n",
                         printable(probe->error()).c_str());
        } else if (!missing.empty()) {
            *why = "the server's notify-keyspace-events lacks the flags \"" + missing +
                   "\", so no event would be recorded; record never writes to the server: set "
                   "them with redis-cli CONFIG SET notify-keyspace-events \"" +
                   wanted + "\"";
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

bool recorder_source::fetch_values(const std::vector<pending_event> &events,
                                   std::vector<rec::record> *out) {
    redisContext *c = values_->raw();
    enum class want { SELECT, VALUE, TTL, TYPE };
    std::vector<std::pair<want, std::size_t>> expected;
    const auto select = [&](int db) {
        if (db != values_db_) {
            redisAppendCommand(c, "SELECT %d", db);
            expected.emplace_back(want::SELECT, 0);
            values_db_ = db;
        }
    };
    for (std::size_t i = 0; i < events.size(); ++i) {
        const pending_event &e = events[i];
        if (key_gone(e.event)) {
            continue;
        }
        select(e.db);
        redisAppendCommand(c, "GET %b", e.key.data(), e.key.size());
        expected.emplace_back(want::VALUE, i);
        // A snapshot (no event) reads every key's time-to-live too.
        if (e.event.empty() || ttl_changed(e.event)) {
            redisAppendCommand(c, "PTTL %b", e.key.data(), e.key.size());
            expected.emplace_back(want::TTL, i);
        }
    }
    std::vector<std::size_t> other_types;
    for (const auto &[what, i] : expected) {
        void *raw = nullptr;
        if (redisGetReply(c, &raw) != REDIS_OK) {
            return false;
        }
        const reply_ptr reply(static_cast<redisReply *>(raw));
        rec::record &r = (*out)[i];
        if (what == want::VALUE) {
            if (reply->type == REDIS_REPLY_STRING) {
                r.kind = rec::value_kind::string;
                r.value.assign(reply->str, reply->len);
            } else if (reply->type == REDIS_REPLY_ERROR) {
                r.kind = rec::value_kind::other_type;
                other_types.push_back(i);
            }
        } else if (what == want::TTL && reply->type == REDIS_REPLY_INTEGER) {
            r.ttl_ms = reply->integer >= 0 ? reply->integer : rec::NO_TTL;
        }
    }
    // Keys of another type (a foreign writer's): their type's name.
    for (const std::size_t i : other_types) {
        select(events[i].db);
        redisAppendCommand(c, "TYPE %b", events[i].key.data(), events[i].key.size());
    }
    for (std::size_t n = 0; n < other_types.size(); ++n) {
        void *raw = nullptr;
        if (redisGetReply(c, &raw) != REDIS_OK) {
            return false;
        }
        const reply_ptr reply(static_cast<redisReply *>(raw));
        rec::record &r = (*out)[other_types[n]];
        r.value = reply->type == REDIS_REPLY_STATUS ? std::string(reply->str, reply->len) : "?";
    }
    return true;
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
            if (family_of_key(k)) {
                keys.push_back({db, std::move(k), ""});
            }
        }
    }
    std::vector<rec::record> records(keys.size());
    if (!fetch_values(keys, &records)) {
        lose(out, values_->raw()->errstr);
        return;
    }
    out.add(begin);
    uint64_t count = 0;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        rec::record &r = records[i];
        if (r.kind == rec::value_kind::absent) {
            continue; // gone between the SCAN and the GET
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

void recorder_source::read_events(rec::segment_writer &out, uint64_t limit) {
    redisContext *c = sub_->raw();
    if (redisBufferRead(c) != REDIS_OK) {
        lose(out, c->errstr[0] != '\0' ? c->errstr : "the server closed the connection");
        return;
    }
    for (bool more = true; more;) {
        std::vector<pending_event> batch;
        while (batch.size() < BATCH) {
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
            if (!split_channel(channel, &e.db, &e.key) || !family_of_key(e.key)) {
                continue;
            }
            e.event.assign(r->element[3]->str, r->element[3]->len);
            batch.push_back(std::move(e));
        }
        if (limit != 0 && out.events() + batch.size() > limit) {
            batch.resize(static_cast<std::size_t>(limit - out.events()));
            more = false;
        }
        if (batch.empty()) {
            return;
        }
        std::vector<rec::record> records(batch.size());
        if (!fetch_values(batch, &records)) {
            lose(out, values_->raw()->errstr);
            return;
        }
        const rec::record now = stamped(rec::record_type::event);
        for (std::size_t i = 0; i < batch.size(); ++i) {
            rec::record &r = records[i];
            r.type = rec::record_type::event;
            r.mono_us = now.mono_us;
            r.wall_us = now.wall_us;
            r.db = batch[i].db;
            r.key = std::move(batch[i].key);
            r.event = std::move(batch[i].event);
            out.add(r);
        }
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
