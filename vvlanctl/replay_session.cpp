// SPDX-License-Identifier: BSD-3-Clause
#include "replay_session.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "presence.h"
#include "printable.h"
#include "wire/key_families.h"
#include "wire/key_parse.h"

#include <algorithm>
#include <tuple>

#include "wire/key_parse.h"

extern char **environ;

namespace {

const std::string MARKER = prefix_of(key_family::data_end);
// Above any marker a management plane writes, so that a barrier's copy can
// never be mistaken for one the recording holds.
constexpr int64_t BARRIER_BASE = 2000000000;

bool is_learning(int db, const std::string &key) {
    return db == DB_STATE && family_of_key(key) == key_family::mac_learning;
}

bool is_configured_oui(int db, const std::string &key) {
    return db == DB_CONFIG && family_of_key(key) == key_family::oui_oper;
}

// Database 1's OUI keys, ordered by the slot of their echo in database 0
// (those without one last, by key).
std::vector<std::pair<std::string, rec::stored_value>>
configured_ouis_by_slot(const rec::keyspace &snapshot) {
    std::vector<std::tuple<uint32_t, std::string, rec::stored_value>> found;
    for (const auto &[id, v] : snapshot) {
        if (!is_configured_oui(id.first, id.second)) {
            continue;
        }
        uint32_t slot = UINT32_MAX;
        const std::string echo = id.second + "/";
        for (auto it = snapshot.lower_bound({DB_STATE, echo});
             it != snapshot.end() && it->first.first == DB_STATE &&
             it->first.second.compare(0, echo.size(), echo) == 0;
             ++it) {
            const auto parts = parse_oui_key(it->first.second);
            if (parts && parts->slot) {
                slot = std::min<uint32_t>(slot, *parts->slot);
            }
        }
        found.emplace_back(slot, id.second, v);
    }
    std::sort(found.begin(), found.end(),
              [](const auto &a, const auto &b) { return std::get<0>(a) < std::get<0>(b); });
    std::vector<std::pair<std::string, rec::stored_value>> out;
    for (auto &[slot, key, v] : found) {
        out.emplace_back(std::move(key), std::move(v));
    }
    return out;
}

// A command whose error reply is expected now and then (an older server's
// ACL syntax, a connection already gone): it must not poison conn.
bool try_command(connection &conn, const std::vector<std::string> &argv) {
    std::vector<const char *> args;
    std::vector<std::size_t> lens;
    for (const std::string &a : argv) {
        args.push_back(a.data());
        lens.push_back(a.size());
    }
    auto *r = static_cast<redisReply *>(
        redisCommandArgv(conn.raw(), static_cast<int>(args.size()), args.data(), lens.data()));
    const bool ok = r != nullptr && r->type != REDIS_REPLY_ERROR;
    if (r != nullptr) {
        freeReplyObject(r);
    }
    return ok;
}

std::string random_hex(std::size_t bytes) {
    std::string raw(bytes, '\0');
    const int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        (void)!read(fd, raw.data(), raw.size());
        close(fd);
    }
    std::string out;
    char hex[3];
    for (const char c : raw) {
        std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned char>(c));
        out += hex;
    }
    return out;
}

} // namespace

replay_session::replay_session(const replay_options &o, connection &conn, std::string socket,
                               int trace_fd, std::vector<std::string> *notes)
    : o_(o), conn_(conn), socket_(std::move(socket)), trace_fd_(trace_fd), notes_(notes) {}

replay_session::~replay_session() {
    stop_daemon();
}

void replay_session::note(const std::string &text) {
    notes_->push_back(text);
    std::fprintf(stderr, "vvlanctl: replay: %s\n", printable(text).c_str());
}

bool replay_session::make_user(std::string *why) {
    user_ = "vvlan-replay-" + random_hex(4);
    password_ = random_hex(16);
    std::vector<std::string> argv = {"ACL",           "SETUSER", user_, "reset", "on",
                                     ">" + password_, "~*",      "&*",  "+@all"};
    if (!try_command(conn_, argv)) {
        // Servers before channel permissions know no "&*" and allow every
        // channel anyway.
        argv.erase(argv.begin() + 7);
        if (!try_command(conn_, argv)) {
            // A server before ACL users (5.0): the daemon connects as the
            // default user, and a lost subscription can only be played as
            // a daemon that stops and starts again.
            const reply_ptr acl = conn_.command({"COMMAND", "INFO", "ACL"});
            if (acl && acl->type == REDIS_REPLY_ARRAY && acl->elements == 1 &&
                acl->element[0]->type == REDIS_REPLY_NIL) {
                user_.clear();
                note("this server has no ACL users: a subscription lost while the daemon lived "
                     "is played as the daemon stopping and starting again");
                return true;
            }
            *why = "the server refused ACL SETUSER for the daemon's user";
            return false;
        }
    }
    return true;
}

void replay_session::drop_user() {
    if (!user_.empty()) {
        try_command(conn_, {"ACL", "DELUSER", user_});
    }
}

bool replay_session::write_key(int db, const std::string &key, const rec::stored_value &v) {
    if (v.kind != rec::value_kind::string) {
        return true;
    }
    if (!conn_.set(db, key, v.value)) {
        return false;
    }
    if (v.ttl_ms > 0 && !conn_.command(db, {"PEXPIRE", key, std::to_string(v.ttl_ms)})) {
        return false;
    }
    return true;
}

bool replay_session::load(const rec::keyspace &snapshot, bool ouis_after_start, std::string *why) {
    if (ouis_after_start) {
        ouis_ = configured_ouis_by_slot(snapshot);
    }
    for (const auto &[id, v] : snapshot) {
        if (is_learning(id.first, id.second)) {
            continue; // played to the daemon once it runs
        }
        if (ouis_after_start && is_configured_oui(id.first, id.second)) {
            continue;
        }
        if (v.kind == rec::value_kind::other_type) {
            note("db " + std::to_string(id.first) + " " + id.second + " is a " + v.value +
                 ", not a string: not loaded");
            continue;
        }
        if (!write_key(id.first, id.second, v)) {
            *why = conn_.error();
            return false;
        }
    }
    return true;
}

bool replay_session::daemon_running() {
    return daemon_ && daemon_->running();
}

bool replay_session::can_barrier() {
    return !denied_ && daemon_running();
}

void replay_session::stop_daemon() {
    if (daemon_) {
        daemon_->stop(std::chrono::seconds(5));
        daemon_.reset();
    }
}

bool replay_session::wait_subscribed(std::string *why) {
    const auto until = std::chrono::steady_clock::now() + o_.timeout;
    for (;;) {
        const daemon_presence p = read_presence(conn_);
        if (p.state == daemon_state::subscribed) {
            return true;
        }
        if (conn_.failed()) {
            *why = conn_.error();
            return false;
        }
        if (!daemon_running()) {
            *why = "the daemon exited before it subscribed (see " + o_.trace + ")";
            return false;
        }
        if (std::chrono::steady_clock::now() >= until ||
            !replay_pause(std::chrono::milliseconds(20))) {
            *why = "the daemon did not subscribe in time";
            return false;
        }
    }
}

bool replay_session::marker_reaches(const std::string &value, std::string *why) {
    if (!conn_.set(DB_CONFIG, MARKER, value)) {
        *why = conn_.error();
        return false;
    }
    const auto until = std::chrono::steady_clock::now() + o_.timeout;
    // The daemon copies the marker within a fraction of a millisecond when
    // it keeps up: look again soon, then less and less often.
    std::chrono::microseconds step{100};
    for (;;) {
        const auto copy = conn_.get(DB_STATE, MARKER);
        if (conn_.failed()) {
            *why = conn_.error();
            return false;
        }
        if (copy == value) {
            return true;
        }
        if (!daemon_running()) {
            *why = "the daemon exited (see " + o_.trace + ")";
            return false;
        }
        if (std::chrono::steady_clock::now() >= until || !replay_pause(step)) {
            *why = "the daemon did not copy the load-complete marker " + value + " in time";
            return false;
        }
        step = std::min(step * 2, std::chrono::microseconds(5000));
    }
}

bool replay_session::barrier(std::string *why) {
    return marker_reaches(std::to_string(BARRIER_BASE + ++barriers_), why);
}

bool replay_session::start_daemon(const rec::keyspace *warm, std::string *why) {
    std::vector<std::string> env;
    for (char **e = environ; *e != nullptr; ++e) {
        if (std::strncmp(*e, "TUKREDIS_", 9) != 0) {
            env.emplace_back(*e);
        }
    }
    env.push_back("TUKREDIS_SOCKET=" + socket_);
    if (!user_.empty()) {
        env.push_back("TUKREDIS_USER=" + user_);
        env.push_back("TUKREDIS_PASSWORD=" + password_);
    }
    daemon_ = std::make_unique<replay_daemon>(o_.daemon_argv, env, trace_fd_);
    if (!daemon_->start(why) || !wait_subscribed(why) || !barrier(why)) {
        return false;
    }
    if (!started_once_) {
        started_once_ = true;
        if (!conn_.set(DB_STATE, prefix_of(key_family::debug_level), o_.debug) || !barrier(why)) {
            if (why->empty()) {
                *why = conn_.error();
            }
            return false;
        }
        for (const auto &[key, v] : ouis_) {
            if (!write_key(DB_CONFIG, key, v)) {
                *why = conn_.error();
                return false;
            }
        }
        if (warm != nullptr) {
            for (const auto &[id, v] : *warm) {
                if (is_learning(id.first, id.second) && !write_key(id.first, id.second, v)) {
                    *why = conn_.error();
                    return false;
                }
            }
            return barrier(why);
        }
    }
    return true;
}

bool replay_session::presence_change(rec::presence_state to, std::string *why) {
    using ps = rec::presence_state;
    const ps from = presence_;
    presence_ = to;
    if (to == ps::unknown || to == from) {
        return true;
    }
    if (to == ps::absent || (to == ps::connected && user_.empty())) {
        stop_daemon();
        return true;
    }
    if (!daemon_running()) {
        // Started again: it subscribes and re-synchronises, as after a
        // restart on the switch.
        return start_daemon(nullptr, why);
    }
    if (to == ps::connected) {
        // The subscription was lost while the process lived: the daemon
        // may reconnect but not subscribe until the record says it did.
        const daemon_presence p = read_presence(conn_);
        try_command(conn_, {"ACL", "SETUSER", user_, "-psubscribe"});
        denied_ = true;
        if (p.state == daemon_state::subscribed && p.address) {
            try_command(conn_, {"CLIENT", "KILL", "ADDR", *p.address});
        }
        const auto until = std::chrono::steady_clock::now() + o_.timeout;
        while (read_presence(conn_).state == daemon_state::subscribed) {
            if (std::chrono::steady_clock::now() >= until ||
                !replay_pause(std::chrono::milliseconds(10))) {
                *why = "the daemon's subscription did not go away";
                return false;
            }
        }
        return true;
    }
    // Subscribed again: it re-synchronises, sweeping what it missed.
    if (denied_) {
        try_command(conn_, {"ACL", "SETUSER", user_, "+psubscribe"});
        denied_ = false;
    }
    return wait_subscribed(why) && barrier(why);
}

bool replay_session::play(const rec::record &r, rec::keyspace *space, uint64_t *played,
                          std::string *why) {
    using rt = rec::record_type;
    switch (r.type) {
    case rt::event: {
        // A value the recorder did not read (a later event of the key came
        // with this one): the key is written with what it last held, so
        // that the daemon sees the write; the later record sets the value.
        const bool unread = r.kind == rec::value_kind::superseded;
        const auto held = space->find({r.db, r.key});
        const rec::stored_value last =
            held != space->end() ? held->second
                                 : rec::stored_value{rec::value_kind::string, "", rec::NO_TTL};
        rec::apply(r, space);
        if (rec::daemon_owned(r.db, r.key)) {
            return true; // the daemon makes its own
        }
        if (r.kind == rec::value_kind::other_type) {
            note("db " + std::to_string(r.db) + " " + r.key + " became a " + r.value +
                 ": not played");
            return true;
        }
        const bool ok = unread ? write_key(r.db, r.key, last)
                        : r.kind == rec::value_kind::string
                            ? write_key(r.db, r.key, {r.kind, r.value, r.ttl_ms})
                            : conn_.del(r.db, r.key);
        if (!ok) {
            *why = conn_.error();
            return false;
        }
        ++*played;
        return !o_.fast || !can_barrier() || barrier(why);
    }
    case rt::snapshot_begin:
        if (static_cast<rec::snapshot_reason>(r.state) == rec::snapshot_reason::reconnect) {
            before_reconnect_ = *space;
        }
        rec::apply(r, space);
        return true;
    case rt::snapshot_key:
        rec::apply(r, space);
        return true;
    case rt::snapshot_end: {
        rec::apply(r, space);
        if (!before_reconnect_) {
            return true; // a rotation repeats what is there
        }
        // What changed while the recorder was away, as writes in key order.
        const rec::keyspace before = std::move(*before_reconnect_);
        before_reconnect_.reset();
        for (const auto &[id, v] : before) {
            if (!rec::daemon_owned(id.first, id.second) && !space->contains(id)) {
                if (!conn_.del(id.first, id.second)) {
                    *why = conn_.error();
                    return false;
                }
                ++*played;
            }
        }
        for (const auto &[id, v] : *space) {
            if (rec::daemon_owned(id.first, id.second)) {
                continue;
            }
            const auto it = before.find(id);
            if (it == before.end() || it->second.value != v.value || it->second.kind != v.kind) {
                if (!write_key(id.first, id.second, v)) {
                    *why = conn_.error();
                    return false;
                }
                ++*played;
            }
        }
        return !can_barrier() || barrier(why);
    }
    case rt::presence:
        return presence_change(static_cast<rec::presence_state>(r.state), why);
    case rt::link:
        note(
            std::string("the recorder's connection was ") +
            (static_cast<rec::link_state>(r.state) == rec::link_state::lost ? "lost" : "restored") +
            (r.text.empty() ? "" : ": " + r.text));
        return true;
    case rt::end:
        return true;
    }
    return true;
}

bool replay_session::restore_marker(const rec::keyspace &recorded, bool *compare_copy,
                                    std::string *why) {
    const auto it = recorded.find({DB_CONFIG, MARKER});
    if (it != recorded.end() && it->second.kind == rec::value_kind::string) {
        *compare_copy = true;
        if (can_barrier()) {
            return marker_reaches(it->second.value, why);
        }
        if (!conn_.set(DB_CONFIG, MARKER, it->second.value)) {
            *why = conn_.error();
            return false;
        }
        return true;
    }
    *compare_copy = false;
    if (barriers_ > 0) {
        note("the recording has no load-complete marker: its copy in database 0 is left out "
             "of the comparison");
    }
    if (!conn_.del(DB_CONFIG, MARKER)) {
        *why = conn_.error();
        return false;
    }
    return true;
}

bool replay_session::read_space(rec::keyspace *out, std::string *why) {
    for (const int db : {DB_STATE, DB_CONFIG}) {
        std::vector<std::string> keys;
        std::vector<std::optional<std::string>> values;
        if (!conn_.scan(db, "*", &keys) || (!keys.empty() && !conn_.get_many(db, keys, &values))) {
            *why = conn_.error();
            return false;
        }
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (values[i]) {
                (*out)[{db, keys[i]}] = {rec::value_kind::string, *values[i], rec::NO_TTL};
            }
        }
    }
    return true;
}
