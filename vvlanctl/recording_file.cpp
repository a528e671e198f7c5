// SPDX-License-Identifier: BSD-3-Clause
#include "recording_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "wire/key_families.h"
#include "wire/key_parse.h"

namespace rec {

bool decode_segment(std::string_view bytes, const std::string &name, segment *out,
                    std::string *fault) {
    decoder d(bytes);
    out->path = name;
    if (!d.read_header(&out->header, fault)) {
        *fault = name + ": " + *fault;
        return false;
    }
    for (;;) {
        record r;
        std::string why;
        const decoder::next n = d.read(&r, &why);
        if (n == decoder::next::END_OF_DATA) {
            return true;
        }
        if (n == decoder::next::FAULT) {
            *fault = name + ": " + why;
            return true;
        }
        out->records.push_back(std::move(r));
    }
}

bool load_recording(const std::vector<std::string> &paths, recording *out, std::string *why) {
    for (const std::string &path : paths) {
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            *why = path + ": " + std::strerror(errno);
            return false;
        }
        std::ostringstream bytes;
        bytes << in.rdbuf();
        segment s;
        std::string fault;
        if (!decode_segment(bytes.str(), path, &s, &fault)) {
            *why = fault;
            return false;
        }
        if (!out->segments.empty() && s.header.segment != out->segments.back().header.segment + 1) {
            *why = path + ": segment " + std::to_string(s.header.segment) +
                   " does not follow segment " +
                   std::to_string(out->segments.back().header.segment) + " of " +
                   out->segments.back().path + " (give a ring's older file first)";
            return false;
        }
        if (!out->fault.empty()) {
            // A fault inside an earlier file: what follows it is lost.
            *why = out->fault;
            return false;
        }
        out->fault = fault;
        out->segments.push_back(std::move(s));
    }
    return true;
}

void apply(const record &r, keyspace *space) {
    switch (r.type) {
    case record_type::snapshot_begin:
        if (static_cast<snapshot_reason>(r.state) != snapshot_reason::rotation) {
            space->clear();
        }
        break;
    case record_type::snapshot_key:
    case record_type::event:
        if (r.kind == value_kind::superseded) {
            break; // a later record of the key says what it holds
        }
        if (r.kind == value_kind::absent) {
            space->erase({r.db, r.key});
        } else {
            (*space)[{r.db, r.key}] = stored_value{r.kind, r.value, r.ttl_ms};
        }
        break;
    default:
        break;
    }
}

bool daemon_owned(int db, std::string_view key) {
    const auto f = family_of_key(key);
    if (!f) {
        return false;
    }
    const key_family_decl &d = family_decl(*f);
    if (db == DB_CONFIG) {
        // The join requests share the learnings' prefix, one level deep.
        return *f == key_family::mac_learning && parse_join_request_key(key).has_value();
    }
    // Database 0: what the re-synchronisation marks and sweeps is the
    // daemon's to write; so are the marker's copy and the linkage messages
    // (which no subscription reads back).
    return (d.swept && d.reread != NOT_REREAD) || *f == key_family::data_end || d.sub_row == NO_ROW;
}

} // namespace rec
