// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl record: the flight recorder. A snapshot of every key of every
// family in both databases, then every keyspace event of those keys with the
// value read right after it, the daemon's subscription as the client list
// shows it, and the recorder's own connection losses, into a file (or a
// ring of two) that history reads and replay plays on a PC. It only reads:
// a recorder left running on a switch must never change what it records.
#include <csignal>
#include <cstdio>
#include <ctime>

#include "commands.h"
#include "dov_vvlan_version.h"
#include "keyspace_channel.h"
#include "printable.h"
#include "recorder_source.h"
#include "recording_writer.h"
#include "size_args.h"
#include "stop_signals.h"

namespace {

struct record_options {
    std::string path;
    int64_t duration_us = 0; // 0: until a signal
    uint64_t count = 0;      // 0: no limit
    rec::ring_bounds ring;
    int64_t presence_us = 1000000;
};

bool parse_options(const std::vector<std::string> &args, record_options *o, std::string *why) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        const bool has_value = i + 1 < args.size();
        if (a != "-o" && a != "--output" && a != "--duration" && a != "--count" &&
            a != "--ring-size" && a != "--ring-age" && a != "--presence-interval") {
            *why = "ARGUMENT \"" + a +
                   "\" is none of -o, --duration, --count, --ring-size, --ring-age, "
                   "--presence-interval";
            return false;
        }
        if (!has_value) {
            *why = "option " + a + " needs a value";
            return false;
        }
        const std::string &v = args[++i];
        bool ok = true;
        if (a == "-o" || a == "--output") {
            o->path = v;
        } else if (a == "--duration") {
            ok = parse_duration(v, &o->duration_us, why);
        } else if (a == "--count") {
            ok = parse_size(v, &o->count, why);
        } else if (a == "--ring-size") {
            ok = parse_size(v, &o->ring.bytes, why);
            if (ok && o->ring.bytes < MIN_RING_BYTES) {
                *why = "--ring-size " + v + " is below the smallest ring, 64k";
                ok = false;
            }
        } else if (a == "--ring-age") {
            ok = parse_duration(v, &o->ring.age_us, why);
        } else {
            ok = parse_duration(v, &o->presence_us, why);
            if (ok && o->presence_us < 50000) {
                *why = "--presence-interval " + v + " is below 50ms";
                ok = false;
            }
        }
        if (!ok) {
            return false;
        }
    }
    if (o->path.empty()) {
        *why = "missing -o FILE; usage: record -o FILE [--duration D] [--count N] "
               "[--ring-size SIZE] [--ring-age D] [--presence-interval D]";
        return false;
    }
    return true;
}

} // namespace

int cmd_record(const tool_context &t) {
    record_options o;
    std::string why;
    if (!parse_options(t.args, &o, &why)) {
        return fail(t, EXIT_USAGE, why);
    }
    recorder_source source(t);
    if (const int status = source.start(&why); status != EXIT_FINE) {
        return fail(t, status, why);
    }
    rec::segment_header h;
    h.tool = std::string("vvlanctl from ") + dov_vvlan_version;
    h.server = t.address.describe();
    h.families = rec::current_families();
    h.start_mono_us = rec_clock::mono_us();
    h.start_wall_us = rec_clock::wall_us();
    rec::segment_writer out(o.path, o.ring, h);
    if (!out.open(&why)) {
        return fail(t, EXIT_UNKNOWN, why);
    }
    catch_stop_signals(true);
    std::fprintf(stderr, "vvlanctl: recording %s into %s\n",
                 printable(t.address.describe()).c_str(), printable(o.path).c_str());
    std::fflush(stderr);

    const int64_t end_us = o.duration_us != 0 ? h.start_mono_us + o.duration_us : INT64_MAX;
    std::string stop = "stopped by a signal";
    bool write_failed = false;
    source.snapshot(rec::snapshot_reason::start, out);
    while (!stop_requested()) {
        const int64_t now = rec_clock::mono_us();
        if (now >= end_us) {
            stop = "the duration ran out";
            break;
        }
        if (o.count != 0 && source.taken() >= o.count) {
            source.drain(out);
            stop = "the count was reached";
            break;
        }
        source.presence_if_due(now, o.presence_us, out);
        if (source.linked()) {
            source.serve(std::min(end_us, source.next_presence_us()), out, o.count);
        } else {
            source.reconnect(out, [] { return stop_requested(); });
        }
        if (!out.flush(&why) ||
            !out.rotate_if_due(rec_clock::mono_us(), rec_clock::wall_us(), &why)) {
            write_failed = true;
            break;
        }
        source.after_rotation(out);
    }
    source.finish(out, o.count);
    rec::record end;
    end.type = rec::record_type::end;
    end.mono_us = rec_clock::mono_us();
    end.wall_us = rec_clock::wall_us();
    end.count = out.events();
    end.text = write_failed ? "the file could not be written" : stop;
    out.add(end);
    if (write_failed || !out.flush(&why)) {
        return fail(t, EXIT_UNKNOWN, "cannot write the recording: " + why);
    }
    const double per_event = out.events() != 0 ? static_cast<double>(out.bytes_written()) /
                                                     static_cast<double>(out.events())
                                               : 0.0;
    std::fprintf(stderr,
                 "vvlanctl: recorded %llu events in %llu bytes (%.1f bytes per event): %s\n",
                 static_cast<unsigned long long>(out.events()),
                 static_cast<unsigned long long>(out.bytes_written()), per_event, stop.c_str());
    return EXIT_FINE;
}
