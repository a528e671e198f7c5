// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl history: a flight recording read back as a timeline, one line
// (or one JSON object) per record, in the words of vvlanctl watch. It needs
// no server: the values it words events with are the ones the recorder read
// right after them. A fault in a file ends the timeline where it is, after
// the records before it, with the byte it is at.
#include <cstdio>
#include <string>
#include <vector>

#include "args.h"
#include "commands.h"
#include "history_text.h"
#include "output.h"
#include "ports.h"
#include "printable.h"
#include "timestamp.h"
#include "watch_filter.h"
#include "wire/key_parse.h"

namespace {

// A time limit: absolute, or counted from the recording's start ("90s").
struct time_limit {
    bool set = false;
    bool relative = false;
    int64_t us = 0;
};

struct history_options {
    bool json = false;
    watch_filter filter;
    std::optional<mac_addr> address;
    time_limit since;
    time_limit until;
    std::vector<std::string> files;
};

bool parse_limit(const std::string &name, const std::string &text, time_limit *out,
                 std::string *why) {
    out->set = true;
    if (parse_time_from_start(text, &out->us)) {
        out->relative = true;
        return true;
    }
    if (parse_timestamp(text, &out->us)) {
        return true;
    }
    *why = name + " \"" + text +
           "\" is neither a time as history prints it (2026-11-24T01:02:03.456+01:00) nor "
           "seconds from the recording's start (90s)";
    return false;
}

bool parse_options(const tool_context &t, history_options *o, std::string *why) {
    std::vector<std::string> rest;
    if (!parse_watch_filter(t.args, &o->filter, &rest, why)) {
        return false;
    }
    o->json = t.json;
    for (std::size_t i = 0; i < rest.size(); ++i) {
        const std::string &a = rest[i];
        if (a == "--json" || a == "-j") {
            o->json = true;
            continue;
        }
        if (a == "--since" || a == "--until" || a == "address") {
            if (i + 1 >= rest.size()) {
                *why = "missing arguments; usage: history ... " + a +
                       (a == "address" ? " MAC" : " TIME");
                return false;
            }
            const std::string &value = rest[++i];
            if (a == "address") {
                if (o->address) {
                    *why = "filter address given twice";
                    return false;
                }
                mac_addr mac{};
                if (!arg_mac("MAC", value, &mac, why)) {
                    return false;
                }
                o->address = mac;
            } else if (!parse_limit(a, value, a == "--since" ? &o->since : &o->until, why)) {
                return false;
            }
            continue;
        }
        if (a.size() > 1 && a[0] == '-') {
            *why = "unknown option \"" + a + "\"";
            return false;
        }
        o->files.push_back(a);
    }
    if (o->files.empty()) {
        *why = "no RECORDING given; usage: history [--json] [port IFX] [oui OUI] [family NAME] "
               "[address MAC] [--since TIME] [--until TIME] RECORDING...";
        return false;
    }
    return true;
}

bool shown(const history_options &o, const rec::record &r, int64_t start_us) {
    const auto at = [&](const time_limit &l) {
        // A damaged header's start can be anywhere: no overflow past the clock's ends.
        int64_t t = 0;
        if (!l.relative) {
            return l.us;
        }
        return __builtin_add_overflow(start_us, l.us, &t) ? INT64_MAX : t;
    };
    if (o.since.set && r.wall_us < at(o.since)) {
        return false;
    }
    if (o.until.set && r.wall_us > at(o.until)) {
        return false;
    }
    if (r.type != rec::record_type::event) {
        // The recorder's own records concern every key.
        return true;
    }
    if (!o.filter.matches(r.key)) {
        return false;
    }
    if (o.address) {
        const auto l = parse_mac_learning_key(r.key);
        return l && l->mac == *o.address;
    }
    return true;
}

} // namespace

int cmd_history(const tool_context &t) {
    history_options o;
    std::string why;
    if (!parse_options(t, &o, &why)) {
        return fail(t, EXIT_USAGE, why);
    }
    if (!ports_init(&why)) {
        return fail(t, EXIT_UNKNOWN, why);
    }
    rec::recording recording;
    if (!rec::load_recording(o.files, &recording, &why) && recording.fault.empty()) {
        // No recording, an unreadable file or segments out of order:
        // nothing is shown of a timeline that would mislead.
        return fail(t, EXIT_UNKNOWN, why);
    }
    const int64_t start_us =
        recording.segments.empty() ? 0 : recording.segments.front().header.start_wall_us;
    history_teller teller;
    for (const rec::segment &s : recording.segments) {
        for (const rec::record &r : s.records) {
            const auto text = teller.tell(r);
            if (!text || !shown(o, r, start_us)) {
                continue;
            }
            const std::string stamp = local_timestamp(r.wall_us);
            if (o.json) {
                std::printf("%s\n", history_json_line(stamp, r, *text, teller.presence()).c_str());
            } else {
                std::printf("%s %s\n", stamp.c_str(), printable(*text).c_str());
            }
        }
        // A reader that went away (| head -1) ends the tool here.
        if (!flush_output()) {
            return EXIT_UNKNOWN;
        }
    }
    if (!recording.fault.empty()) {
        if (!flush_output()) {
            return EXIT_UNKNOWN;
        }
        return fail(t, EXIT_UNKNOWN, recording.fault);
    }
    return EXIT_FINE;
}
