// SPDX-License-Identifier: BSD-3-Clause
#include "replay_compare.h"

#include <cstdio>
#include <set>

#include "json_writer.h"
#include "printable.h"
#include "wire/key_families.h"
#include "wire/key_parse.h"

namespace {

severity level_of(const std::string &kind) {
    for (const finding_kind &k : FINDING_KINDS) {
        if (kind == k.kind) {
            return k.level;
        }
    }
    return severity::warning;
}

// The port a join request (database 1) or a mode 2 key (database 0) is for:
// those two mean "joined", so their differences read as check's join
// findings; every other copy is a published one.
std::optional<int32_t> join_port(int db, const std::string &key) {
    if (db == DB_CONFIG) {
        return parse_join_request_key(key);
    }
    if (const auto p = parse_port_oper_key(key); p && p->mode == 2) {
        return p->ifx;
    }
    return std::nullopt;
}

std::optional<std::string> string_of(const rec::keyspace &space, const rec::key_id &id) {
    const auto it = space.find(id);
    if (it == space.end() || it->second.kind != rec::value_kind::string) {
        return std::nullopt;
    }
    return it->second.value;
}

int64_t per_second(uint64_t events, int64_t ms) {
    return ms > 0 ? static_cast<int64_t>(events * 1000 / static_cast<uint64_t>(ms)) : 0;
}

std::string difference_detail(const replay_difference &d) {
    std::string out = "db ";
    out += std::to_string(d.db);
    out += " ";
    out += printable(d.key);
    out += ": recorded ";
    out += value_text(d.recorded);
    out += ", replayed ";
    out += value_text(d.replayed);
    return out;
}

void optional_string(json_writer &w, const std::optional<std::string> &v) {
    if (v) {
        w.string(value_text(v));
    } else {
        w.null();
    }
}

} // namespace

std::string value_text(const std::optional<std::string> &v) {
    if (!v) {
        return "none";
    }
    bool text = true;
    for (const char c : *v) {
        const auto b = static_cast<unsigned char>(c);
        text = text && b >= 0x20 && b < 0x7f;
    }
    if (text) {
        // Appended piece by piece: GCC 12 at -O3 warns falsely (restrict)
        // on a literal added to a string.
        std::string quoted = "\"";
        quoted += printable(*v);
        quoted += '"';
        return quoted;
    }
    std::string out = "0x";
    char hex[3];
    for (const char c : *v) {
        std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned char>(c));
        out += hex;
    }
    return out;
}

std::vector<replay_difference> compare_owned(const rec::keyspace &recorded,
                                             const rec::keyspace &replayed) {
    std::set<rec::key_id> ids;
    for (const rec::keyspace *space : {&recorded, &replayed}) {
        for (const auto &[id, value] : *space) {
            if (rec::daemon_owned(id.first, id.second) && value.kind == rec::value_kind::string) {
                ids.insert(id);
            }
        }
    }
    std::vector<replay_difference> out;
    for (const rec::key_id &id : ids) {
        replay_difference d;
        d.db = id.first;
        d.key = id.second;
        d.recorded = string_of(recorded, id);
        d.replayed = string_of(replayed, id);
        if (d.recorded == d.replayed) {
            continue;
        }
        d.ifx = join_port(d.db, d.key);
        if (d.ifx && !d.replayed) {
            d.kind = "join_key_missing";
        } else if (d.ifx && !d.recorded) {
            d.kind = "join_key_without_join";
        } else {
            // A join key with another value is a copy that differs too.
            d.kind = "published_differs";
        }
        d.level = level_of(d.kind);
        out.push_back(std::move(d));
    }
    return out;
}

std::string report_text(const replay_report &r) {
    std::string out;
    for (const replay_difference &d : r.differences) {
        out += d.kind;
        if (d.ifx) {
            out += " port " + std::to_string(*d.ifx);
        }
        out += ": ";
        out += severity_name(d.level);
        out += ": ";
        out += difference_detail(d);
        out += "\n";
    }
    out += "audit of the replayed databases:\n";
    out += r.audit.empty() ? std::string("  nothing found\n") : findings_text(r.audit);
    char summary[160];
    std::snprintf(
        summary, sizeof summary,
        "replayed %llu events in %lld.%03lld s (%lld events/s), %zu differences\n",
        static_cast<unsigned long long>(r.events_played),
        static_cast<long long>(r.duration_ms / 1000), static_cast<long long>(r.duration_ms % 1000),
        static_cast<long long>(per_second(r.events_played, r.duration_ms)), r.differences.size());
    out += summary;
    return out;
}

std::string report_json(const replay_report &r) {
    json_writer w;
    w.begin_object();
    w.key("schema_version").number(JSON_SCHEMA_VERSION);
    w.key("events_played").number(static_cast<int64_t>(r.events_played));
    w.key("duration_ms").number(r.duration_ms);
    w.key("events_per_second").number(per_second(r.events_played, r.duration_ms));
    w.key("differences").begin_array();
    for (const replay_difference &d : r.differences) {
        w.begin_object();
        w.key("kind").string(d.kind);
        w.key("severity").string(severity_name(d.level));
        w.key("ifx");
        if (d.ifx) {
            w.number(*d.ifx);
        } else {
            w.null();
        }
        w.key("db").number(d.db);
        w.key("key").string(d.key);
        w.key("recorded");
        optional_string(w, d.recorded);
        w.key("replayed");
        optional_string(w, d.replayed);
        w.key("detail").string(difference_detail(d));
        w.end_object();
    }
    w.end_array();
    w.key("audit").begin_array();
    for (const finding &f : r.audit) {
        w.begin_object();
        w.key("kind").string(f.kind);
        w.key("severity").string(severity_name(f.level));
        w.key("ifx");
        if (f.ifx) {
            w.number(*f.ifx);
        } else {
            w.null();
        }
        w.key("detail").string(f.detail);
        w.end_object();
    }
    w.end_array();
    w.key("notes").begin_array();
    for (const std::string &n : r.notes) {
        w.string(n);
    }
    w.end_array();
    w.end_object();
    return w.text();
}
