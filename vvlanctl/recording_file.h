// SPDX-License-Identifier: BSD-3-Clause
// A recording read back whole: its segments (one file each; a ring leaves
// the older file and the newer one) decoded into records, and the keyspace
// the records describe at any point, which history words events with and
// replay loads and compares against.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "recording.h"

namespace rec {

struct segment {
    std::string path;
    segment_header header;
    std::vector<record> records;
};

struct recording {
    std::vector<segment> segments;
    // Empty, or where and why reading stopped ("rec.vvr: byte 1234: ..."):
    // the records before it are kept.
    std::string fault;
};

// Reads the files in the order given (a ring's older file first). False
// when a file cannot be read at all or is no recording; a fault inside a
// file is in out->fault with the records before it kept. A later file must
// continue the one before it (the next segment number) or it is refused.
bool load_recording(const std::vector<std::string> &paths, recording *out, std::string *why);
// The same over bytes already in memory, as one segment named name.
bool decode_segment(std::string_view bytes, const std::string &name, segment *out,
                    std::string *fault);

struct stored_value {
    value_kind kind = value_kind::string;
    std::string value;
    int64_t ttl_ms = NO_TTL;
};
// Database and key.
using key_id = std::pair<int, std::string>;
using keyspace = std::map<key_id, stored_value>;

// What the record changes in the keyspace: a snapshot_begin of a start or
// a reconnect empties it (the snapshot that follows replaces it; a
// rotation's snapshot repeats what is there), a snapshot_key or an event
// with a value puts it, an event without one removes the key.
void apply(const record &r, keyspace *space);

// Whether the daemon writes the key in db: its applied copies, marker copy,
// MAC-VLAN linkage messages and port operation keys in database 0, the join
// requests in database 1, and the copies the re-synchronisation sweeps.
// Replay plays every other key's events and compares these.
bool daemon_owned(int db, std::string_view key);

} // namespace rec
