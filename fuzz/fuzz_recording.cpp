// SPDX-License-Identifier: BSD-3-Clause
// The flight recording's reader on arbitrary bytes, as one file: its header
// and records decoded within their bounds, applied to the keyspace and told
// in words and JSON as vvlanctl history tells them. Besides a crash or a
// sanitizer's report, two things abort: a fault that does not name its
// byte, and records that do not read back the same once written again by
// the recorder's encoder.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "history_text.h"
#include "ports.h"
#include "recording_file.h"
#include "timestamp.h"

namespace {

bool same(const rec::record &a, const rec::record &b) {
    return a.type == b.type && a.mono_us == b.mono_us && a.wall_us == b.wall_us && a.db == b.db &&
           a.event == b.event && a.key == b.key && a.kind == b.kind && a.value == b.value &&
           a.ttl_ms == b.ttl_ms && a.state == b.state && a.text == b.text && a.count == b.count;
}

// The encoder takes times as a recorder reads them from its clocks: far
// from the ends of 64 bits, where its deltas cannot overflow.
bool clock_like(const rec::segment &s) {
    constexpr int64_t LIMIT = int64_t{1} << 60;
    const auto ok = [&](int64_t t) { return t > -LIMIT && t < LIMIT; };
    if (!ok(s.header.start_wall_us) || !ok(s.header.start_mono_us)) {
        return false;
    }
    for (const rec::record &r : s.records) {
        if (!ok(r.wall_us) || !ok(r.mono_us)) {
            return false;
        }
    }
    return true;
}

[[noreturn]] void fail(const char *what, std::size_t i) {
    std::fprintf(stderr, "recording fuzzer: %s (record %zu)\n", what, i);
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool ports = [] {
        std::string why;
        return ports_init(&why);
    }();
    (void)ports;
    const std::string_view bytes(reinterpret_cast<const char *>(data), size);
    rec::segment s;
    std::string fault;
    if (!rec::decode_segment(bytes, "f", &s, &fault)) {
        return 0;
    }
    if (!fault.empty() && fault.rfind("f: byte ", 0) != 0) {
        fail(fault.c_str(), s.records.size());
    }
    history_teller teller;
    for (const rec::record &r : s.records) {
        if (const auto text = teller.tell(r)) {
            const std::string line =
                history_json_line(local_timestamp(r.wall_us), r, *text, teller.presence());
            if (line.empty() || line.back() != '}') {
                fail("a JSON line that does not close", 0);
            }
        }
    }
    if (!clock_like(s)) {
        return 0;
    }
    rec::encoder e(s.header);
    std::string again = e.header();
    for (const rec::record &r : s.records) {
        e.append(r, &again);
    }
    rec::segment back;
    std::string back_fault;
    if (!rec::decode_segment(again, "f", &back, &back_fault) || !back_fault.empty()) {
        fail(("written again, it reads as " + back_fault).c_str(), back.records.size());
    }
    if (back.records.size() != s.records.size()) {
        fail("written again, a different number of records", back.records.size());
    }
    for (std::size_t i = 0; i < s.records.size(); ++i) {
        if (!same(s.records[i], back.records[i])) {
            fail("written again, a record reads differently", i);
        }
    }
    return 0;
}
