// SPDX-License-Identifier: BSD-3-Clause
// Recordings made with the recorder's own encoder, for the format's unit
// tests and history's: a header of this build's families, records of every
// type, and the bytes put together.
#pragma once

#include <string>
#include <vector>

#include "recording.h"
#include "wire/keys.h"
#include "wire/mac_addr.h"

namespace rectest {

inline constexpr int64_t START_WALL = 1795000000000000; // 2026-11-18, microseconds
inline constexpr int64_t START_MONO = 5000000;

// The voice OUI of the samples, its mask, and a phone under it.
inline const mac_addr OUI{0x00, 0xe0, 0xbb, 0x00, 0x00, 0x00};
inline const mac_addr MASK{0xff, 0xff, 0xff, 0x00, 0x00, 0x00};
inline const mac_addr PHONE{0x00, 0xe0, 0xbb, 0x12, 0x34, 0x56};

inline rec::segment_header sample_header(uint32_t segment = 1) {
    rec::segment_header h;
    h.segment = segment;
    h.start_wall_us = START_WALL;
    h.start_mono_us = START_MONO;
    h.tool = "vvlanctl test";
    h.server = "unix:/tmp/test.sock";
    h.families = rec::current_families();
    return h;
}

// A record at seconds after the start (both clocks).
inline rec::record at(double seconds, rec::record_type type) {
    rec::record r;
    r.type = type;
    const auto us = static_cast<int64_t>(seconds * 1000000);
    r.mono_us = START_MONO + us;
    r.wall_us = START_WALL + us;
    return r;
}

inline rec::record event(double seconds, int db, std::string name, std::string key,
                         std::optional<std::string> value = std::nullopt,
                         int64_t ttl = rec::NO_TTL) {
    rec::record r = at(seconds, rec::record_type::event);
    r.db = db;
    r.event = std::move(name);
    r.key = std::move(key);
    if (value) {
        r.kind = rec::value_kind::string;
        r.value = *value;
    } else {
        r.kind = rec::value_kind::absent;
    }
    r.ttl_ms = ttl;
    return r;
}

inline rec::record state(double seconds, rec::record_type type, uint8_t s, std::string text = "") {
    rec::record r = at(seconds, type);
    r.state = s;
    r.text = std::move(text);
    return r;
}

inline rec::record counted(double seconds, rec::record_type type, uint64_t count,
                           std::string text = "") {
    rec::record r = at(seconds, type);
    r.count = count;
    r.text = std::move(text);
    return r;
}

inline rec::record snapshot_key(double seconds, int db, std::string key, std::string value,
                                int64_t ttl = rec::NO_TTL) {
    rec::record r = event(seconds, db, "", std::move(key), std::move(value), ttl);
    r.type = rec::record_type::snapshot_key;
    r.event.clear();
    return r;
}

// The header and the records, as one file's bytes; ends, when given, gets
// the offset after each record.
inline std::string encode(const rec::segment_header &h, const std::vector<rec::record> &records,
                          std::vector<std::size_t> *ends = nullptr) {
    rec::encoder e(h);
    std::string out = e.header();
    if (ends != nullptr) {
        ends->push_back(out.size());
    }
    for (const rec::record &r : records) {
        e.append(r, &out);
        if (ends != nullptr) {
            ends->push_back(out.size());
        }
    }
    return out;
}

inline std::string key(const key_buf &k) {
    return k.c_str();
}

} // namespace rectest
