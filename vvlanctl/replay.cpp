// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl replay: a recording played to a daemon on a PC, against a
// private redis-server, and what the daemon published compared with what
// the switch's daemon published at the same point.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "check.h"
#include "commands.h"
#include "output.h"
#include "replay_compare.h"
#include "replay_session.h"
#include "snapshot.h"
#include "timestamp.h"
#include "wire/key_families.h"

namespace {

const char *const REPLAY_USAGE =
    "usage: vvlanctl replay [options] RECORDING... -- DAEMON [ARGS...]";

bool parse_double(const std::string &text, double *out) {
    char *end = nullptr;
    *out = std::strtod(text.c_str(), &end);
    return !text.empty() && end != nullptr && *end == '\0';
}

// A time as history and watch print it, or one from the recording's
// start ("90s", "1.5s").
bool parse_until(const std::string &text, replay_options *o) {
    int64_t us = 0;
    if (parse_time_from_start(text, &us)) {
        o->until_offset_us = us;
        return true;
    }
    if (parse_timestamp(text, &us)) {
        o->until_wall_us = us;
        return true;
    }
    return false;
}

bool parse_options(const std::vector<std::string> &args, replay_options *o, std::string *why) {
    std::size_t i = 0;
    auto value = [&](const std::string &name, std::string *out) {
        if (i + 1 >= args.size() || args[i + 1].empty()) {
            *why = "option " + name + " needs a value";
            return false;
        }
        *out = args[++i];
        return true;
    };
    for (; i < args.size(); ++i) {
        const std::string &a = args[i];
        std::string v;
        if (a == "--") {
            o->daemon_argv.assign(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end());
            break;
        }
        if (a == "--keep" || a == "--fast") {
            (a == "--keep" ? o->keep : o->fast) = true;
        } else if (a == "-j" || a == "--json") {
            o->json = true;
        } else if (a == "--redis-server" || a == "--on" || a == "--trace" || a == "--debug") {
            if (!value(a, &v)) {
                return false;
            }
            (a == "--redis-server" ? o->redis_server
             : a == "--on"         ? o->on
             : a == "--trace"      ? o->trace
                                   : o->debug) = v;
        } else if (a == "--timeout" || a == "--speed") {
            double x = 0;
            if (!value(a, &v)) {
                return false;
            }
            if (!parse_double(v, &x) || !(x > 0)) {
                *why = a + " must be a number above 0";
                return false;
            }
            if (a == "--timeout") {
                o->timeout = std::chrono::milliseconds(static_cast<int64_t>(x * 1000));
            } else {
                o->speed = x;
            }
        } else if (a == "--until") {
            if (!value(a, &v)) {
                return false;
            }
            if (!parse_until(v, o)) {
                *why = "--until takes a time as 2026-11-24T00:45:01Z or seconds as 90s";
                return false;
            }
        } else if (a.size() > 1 && a[0] == '-') {
            *why = "unknown option \"" + a + "\"";
            return false;
        } else {
            o->recordings.push_back(a);
        }
    }
    if (o->recordings.empty() || o->daemon_argv.empty()) {
        *why = REPLAY_USAGE;
        return false;
    }
    return true;
}

// The records to play: everything after the first segment's snapshot, up to
// --until; *initial is the keyspace that snapshot describes.
bool split(const rec::recording &r, const replay_options &o, rec::keyspace *initial,
           std::vector<const rec::record *> *play, std::string *why) {
    const rec::segment &first = r.segments.front();
    std::size_t i = 0;
    if (first.records.empty() || first.records[0].type != rec::record_type::snapshot_begin) {
        *why = first.path + ": the recording does not begin with a snapshot";
        return false;
    }
    for (; i < first.records.size(); ++i) {
        rec::apply(first.records[i], initial);
        if (first.records[i].type == rec::record_type::snapshot_end) {
            break;
        }
    }
    if (i == first.records.size()) {
        *why = first.path + ": the first snapshot is not complete";
        return false;
    }
    const int64_t start_mono = first.header.start_mono_us;
    for (const rec::segment &s : r.segments) {
        for (std::size_t k = &s == &first ? i + 1 : 0; k < s.records.size(); ++k) {
            const rec::record &x = s.records[k];
            if ((o.until_wall_us && x.wall_us > *o.until_wall_us) ||
                (o.until_offset_us && x.mono_us - start_mono > *o.until_offset_us)) {
                return true;
            }
            play->push_back(&x);
        }
    }
    return true;
}

std::string server_binary(const replay_options &o) {
    if (!o.redis_server.empty()) {
        return o.redis_server;
    }
    const char *env = std::getenv("REDIS_SERVER_BIN");
    return env != nullptr && env[0] != '\0' ? env : "redis-server";
}

// Waits until the record's time has come at the chosen speed.
bool keep_time(const replay_options &o, int64_t base_mono, int64_t mono,
               std::chrono::steady_clock::time_point start) {
    if (o.fast) {
        return !replay_interrupted();
    }
    const auto due = start + std::chrono::microseconds(static_cast<int64_t>(
                                 static_cast<double>(mono - base_mono) / o.speed));
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        due - std::chrono::steady_clock::now());
    return left.count() <= 0 ? !replay_interrupted() : replay_pause(left);
}

} // namespace

int cmd_replay(const tool_context &t) {
    replay_options o;
    std::string why;
    if (!parse_options(t.args, &o, &why)) {
        return fail(t, EXIT_USAGE, why);
    }
    o.json = o.json || t.json;
    rec::recording recording;
    if (!rec::load_recording(o.recordings, &recording, &why)) {
        return fail(t, EXIT_USAGE, why);
    }
    if (!recording.fault.empty()) {
        return fail(t, EXIT_USAGE, "refused, the recording has a fault: " + recording.fault);
    }
    rec::keyspace initial;
    std::vector<const rec::record *> play;
    if (recording.segments.empty() || !split(recording, o, &initial, &play, &why)) {
        return fail(t, EXIT_USAGE, why.empty() ? "the recording is empty" : why);
    }
    const int trace_fd =
        open(o.trace.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    if (trace_fd < 0) {
        return fail(t, EXIT_USAGE, "cannot write " + o.trace);
    }
    replay_catch_signals();

    replay_server server;
    std::string socket = o.on;
    if (o.on.empty()) {
        if (!server.start(server_binary(o), std::chrono::seconds(10), &why)) {
            server.stop(o.keep);
            close(trace_fd);
            return fail(t, EXIT_UNKNOWN, why);
        }
        socket = server.socket_path();
    }
    auto conn = connection::open(server_address::unix_socket(socket),
                                 o.on.empty() ? conn_settings::credentials{} : t.who, &why);
    int status = EXIT_UNKNOWN;
    bool written = false; // a given server is emptied again only once replay wrote to it
    std::optional<std::string> events_before; // its notify-keyspace-events, when changed
    replay_report report;
    [&] {
        if (!conn) {
            why = "cannot connect to " + socket + ": " + why;
            return;
        }
        if (!o.on.empty()) {
            for (const int db : {DB_STATE, DB_CONFIG}) {
                const reply_ptr n = conn->command(db, {"DBSIZE"});
                if (!n || n->type != REDIS_REPLY_INTEGER || n->integer != 0) {
                    why = o.on + ": database " + std::to_string(db) +
                          " is not empty; replay writes both databases and needs them empty";
                    return;
                }
            }
        }
        written = true;
        std::string missing;
        std::string wanted;
        if (!conn->missing_keyspace_events(&missing, &wanted)) {
            why = "cannot read notify-keyspace-events: " + conn->error();
            return;
        }
        if (!missing.empty()) {
            const reply_ptr was = conn->command({"CONFIG", "GET", "notify-keyspace-events"});
            if (was && was->type == REDIS_REPLY_ARRAY && was->elements == 2 &&
                was->element[1]->type == REDIS_REPLY_STRING) {
                events_before = std::string(was->element[1]->str, was->element[1]->len);
            }
            if (!conn->set_keyspace_events(wanted)) {
                why = "cannot turn keyspace events on: " + conn->error();
                return;
            }
        }
        replay_session session(o, *conn, socket, trace_fd, &report.notes);
        const auto done = [&] { session.drop_user(); };
        // A daemon the recording first shows absent starts when it appears.
        bool start_now = true;
        for (const rec::record *r : play) {
            if (r->type == rec::record_type::presence) {
                start_now =
                    static_cast<rec::presence_state>(r->state) != rec::presence_state::absent;
                break;
            }
        }
        if (!session.make_user(&why) || !session.load(initial, start_now, &why)) {
            return done();
        }
        if (start_now && !session.start_daemon(&initial, &why)) {
            return done();
        }
        rec::keyspace space = initial;
        const auto start = std::chrono::steady_clock::now();
        const int64_t base_mono = play.empty() ? 0 : play.front()->mono_us;
        for (const rec::record *r : play) {
            if (!keep_time(o, base_mono, r->mono_us, start)) {
                why = "interrupted";
                return done();
            }
            if (!session.play(*r, &space, &report.events_played, &why)) {
                return done();
            }
        }
        if (session.can_barrier() && !session.barrier(&why)) {
            return done();
        }
        report.duration_ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - start)
                                 .count();
        bool compare_copy = true;
        rec::keyspace replayed;
        if (!session.restore_marker(space, &compare_copy, &why) ||
            !session.read_space(&replayed, &why)) {
            return done();
        }
        if (!compare_copy) {
            const rec::key_id copy{DB_STATE, prefix_of(key_family::data_end)};
            space.erase(copy);
            replayed.erase(copy);
        }
        report.differences = compare_owned(space, replayed);
        snapshot snap;
        if (!read_snapshot(*conn, &snap)) {
            why = conn->error();
            return done();
        }
        report.audit = audit(snap);
        session.stop_daemon();
        done();
        status = report.differences.empty() ? EXIT_FINE : EXIT_NOT_DONE;
    }();
    if (conn && written && !o.on.empty() && !o.keep) {
        for (const int db : {DB_STATE, DB_CONFIG}) {
            conn->command(db, {"FLUSHDB"});
        }
        if (events_before) {
            conn->command({"CONFIG", "SET", "notify-keyspace-events", *events_before});
        }
    }
    if (conn && o.on.empty() && o.keep) {
        // What the replay left, for redis-server --dir DIR to serve again.
        conn->command({"SAVE"});
        std::fprintf(stderr, "vvlanctl: replay: kept %s (dump.rdb, redis.log)\n",
                     server.dir().c_str());
    }
    conn.reset();
    server.stop(o.keep);
    close(trace_fd);
    if (status == EXIT_UNKNOWN) {
        // A signal cuts every wait short: that, not the wait, is the reason.
        return fail(t, EXIT_UNKNOWN, replay_interrupted() ? "interrupted" : why);
    }
    write_output(o.json ? report_json(report) : report_text(report));
    return status;
}
