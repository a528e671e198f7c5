// SPDX-License-Identifier: BSD-3-Clause
// The flight recording's format: what the encoder writes the decoder gives
// back field for field, and every damaged or foreign file is refused with a
// message naming where, keeping the records before it, never crashing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "recording_file.h"
#include "recording_samples.h"
#include "wire/key_families.h"

namespace {

using namespace rectest;
using rec::record_type;

// A record of every type, with the corners of each field.
std::vector<rec::record> every_type() {
    std::vector<rec::record> out;
    out.push_back(state(0, record_type::snapshot_begin, 0));
    out.push_back(snapshot_key(0.001, 1, key(vid_key(100)), std::string("\x00\x64", 2)));
    out.push_back(snapshot_key(0.002, 0, key(port_oper_key(5, 2)), "", 3600000));
    out.push_back(counted(0.003, record_type::snapshot_end, 2));
    out.push_back(event(1, 0, "set", key(mac_learning_key(100, 6, PHONE)), "\x01\xff\x00\x80"));
    out.push_back(event(1.5, 0, "expire", key(port_oper_key(5, 2)), "", 3599000));
    out.push_back(event(2, 0, "del", key(port_oper_key(5, 2))));
    // A key of no family, an event name that has no code, a value of
    // another type, a negative time to live other than "none".
    rec::record other = event(3, 1, "hset", "/somewhere/else", "hash", -2);
    other.kind = rec::value_kind::other_type;
    out.push_back(other);
    out.push_back(event(3.25, 0, "set", key(family_key(key_family::debug_level)), "2"));
    out.push_back(event(3.5, 1, "set", key(family_key(key_family::data_end)), "1002"));
    out.push_back(state(4, record_type::link, 0, "Connection reset by peer"));
    out.push_back(state(9, record_type::link, 1));
    out.push_back(state(9, record_type::snapshot_begin, 2));
    out.push_back(counted(9.1, record_type::snapshot_end, 0));
    for (uint8_t s = 0; s <= 3; ++s) {
        out.push_back(state(10 + s, record_type::presence, s, "id=7 name=tukredis"));
    }
    // The wall clock set back an hour: its own delta, not the monotonic one.
    rec::record back = event(20, 1, "set", key(oui_oper_key(OUI, MASK)), "");
    back.wall_us -= 3600000000;
    out.push_back(back);
    out.push_back(counted(21, record_type::end, 7, "SIGTERM"));
    return out;
}

void expect_same(const rec::record &a, const rec::record &b, std::size_t i) {
    EXPECT_EQ(a.type, b.type) << i;
    EXPECT_EQ(a.mono_us, b.mono_us) << i;
    EXPECT_EQ(a.wall_us, b.wall_us) << i;
    EXPECT_EQ(a.db, b.db) << i;
    EXPECT_EQ(a.event, b.event) << i;
    EXPECT_EQ(a.key, b.key) << i;
    EXPECT_EQ(a.kind, b.kind) << i;
    EXPECT_EQ(a.value, b.value) << i;
    EXPECT_EQ(a.ttl_ms, b.ttl_ms) << i;
    EXPECT_EQ(a.state, b.state) << i;
    EXPECT_EQ(a.text, b.text) << i;
    EXPECT_EQ(a.count, b.count) << i;
}

// The record fields each type carries (the rest is left at its default).
rec::record as_carried(rec::record r) {
    if (r.type != record_type::event && r.type != record_type::snapshot_key) {
        r.db = 0;
        r.key.clear();
        r.kind = rec::value_kind::absent;
        r.value.clear();
        r.ttl_ms = rec::NO_TTL;
    }
    if (r.type != record_type::event) {
        r.event.clear();
    }
    return r;
}

std::string header_with(uint16_t format, uint32_t length, const std::string &text) {
    std::string out(rec::MAGIC);
    out += static_cast<char>(format >> 8);
    out += static_cast<char>(format & 0xff);
    out += '\0';
    out += '\x01';
    for (int i = 3; i >= 0; --i) {
        out += static_cast<char>((length >> (8 * i)) & 0xff);
    }
    return out + text;
}

std::string fault_of(const std::string &bytes, std::size_t *records = nullptr) {
    rec::segment s;
    std::string fault;
    const bool ok = rec::decode_segment(bytes, "f.vvr", &s, &fault);
    if (records != nullptr) {
        *records = s.records.size();
    }
    return (ok ? "" : "refused: ") + fault;
}

TEST(RecordingFormat, EveryRecordTypeRoundTrips) {
    const auto records = every_type();
    const std::string bytes = encode(sample_header(3), records);
    rec::segment s;
    std::string fault;
    ASSERT_TRUE(rec::decode_segment(bytes, "f.vvr", &s, &fault)) << fault;
    EXPECT_EQ(fault, "");
    EXPECT_EQ(s.header.segment, 3u);
    EXPECT_EQ(s.header.start_wall_us, START_WALL);
    EXPECT_EQ(s.header.start_mono_us, START_MONO);
    EXPECT_EQ(s.header.tool, "vvlanctl test");
    EXPECT_EQ(s.header.server, "unix:/tmp/test.sock");
    ASSERT_EQ(s.header.families.size(), KEY_FAMILIES.size());
    for (std::size_t i = 0; i < KEY_FAMILIES.size(); ++i) {
        EXPECT_EQ(s.header.families[i].prefix, KEY_FAMILIES[i].prefix);
        EXPECT_EQ(s.header.families[i].exact, KEY_FAMILIES[i].exact);
    }
    ASSERT_EQ(s.records.size(), records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        expect_same(s.records[i], as_carried(records[i]), i);
    }
}

TEST(RecordingFormat, TruncationAtEveryByteKeepsTheRecordsBefore) {
    std::vector<std::size_t> ends;
    const auto records = every_type();
    const std::string bytes = encode(sample_header(), records, &ends);
    const std::size_t header_end = ends.front();
    for (std::size_t n = 0; n < bytes.size(); ++n) {
        std::size_t kept = 0;
        const std::string fault = fault_of(bytes.substr(0, n), &kept);
        if (n < header_end) {
            EXPECT_EQ(fault.rfind("refused: f.vvr: ", 0), 0u) << n << ": " << fault;
            continue;
        }
        // Whole records before the cut, and the cut record's start named.
        std::size_t whole = 0;
        while (whole + 1 < ends.size() && ends[whole + 1] <= n) {
            ++whole;
        }
        EXPECT_EQ(kept, whole) << n;
        if (ends[whole] == n) {
            EXPECT_EQ(fault, "") << n;
            continue;
        }
        ASSERT_EQ(fault.rfind("f.vvr: byte ", 0), 0u) << n << ": " << fault;
        const std::size_t at = std::stoul(fault.substr(12));
        EXPECT_GE(at, ends[whole]) << n << ": " << fault;
        EXPECT_LE(at, n) << n << ": " << fault;
    }
}

TEST(RecordingFormat, ForeignAndDamagedFilesSayWhy) {
    const std::string good = encode(sample_header(), {});
    std::string bad_magic = good;
    bad_magic[0] = 'X';
    EXPECT_EQ(fault_of(bad_magic),
              "refused: f.vvr: not a vvlanctl recording (no VVLANREC at its start)");
    std::string newer = good;
    newer[9] = static_cast<char>(rec::FORMAT_VERSION + 1);
    EXPECT_EQ(fault_of(newer).rfind("refused: f.vvr: format version 2 (this vvlanctl reads 1;", 0),
              0u)
        << fault_of(newer);
    EXPECT_NE(
        fault_of(header_with(1, 1000000, "x")).find("truncated header: 1000000 bytes announced"),
        std::string::npos);

    // A value longer than its bound, announced in a record long enough.
    std::string oversized = good;
    std::string body(4, '\0'); // times, db 0, event "set"
    body += '\xff';            // a literal key
    body += '\x01';
    body += 'k';
    body += '\x01'; // a string
    uint64_t n = rec::MAX_VALUE + 1;
    while (n >= 0x80) {
        body += static_cast<char>((n & 0x7f) | 0x80);
        n >>= 7;
    }
    body += static_cast<char>(n);
    oversized += '\x04';
    oversized += static_cast<char>(body.size());
    oversized += body;
    EXPECT_NE(fault_of(oversized).find(
                  ": bad event record: a value of 16777217 bytes (at most 16777216)"),
              std::string::npos)
        << fault_of(oversized);

    std::string unknown_type = good + std::string("\x09\x00", 2);
    EXPECT_EQ(fault_of(unknown_type),
              "f.vvr: byte " + std::to_string(good.size()) + ": unknown record type 9");

    // Times, db 0, "set", family 64 and an empty tail, an absent value, no TTL.
    const std::string fields = std::string(4, '\0') + std::string("\x40\x00\x00\x00\x00", 5);
    std::string no_family = good + "\x04" + static_cast<char>(fields.size()) + fields;
    EXPECT_NE(fault_of(no_family).find("key family 64 is not in the header"), std::string::npos)
        << fault_of(no_family);
}

TEST(RecordingFormat, UnknownHeaderLinesAndTrailingRecordBytesAreSkipped) {
    const std::string text =
        "vvlanctl flight recording\nsegment 4\ncompression none\n"
        "family vid 1 prefix /bridge/vvlan/vid/\nwritten_by a newer vvlanctl\n";
    std::string bytes = header_with(1, static_cast<uint32_t>(text.size()), text);
    // An end record with a field this reader does not know after its own.
    bytes += std::string("\x07\x05\x00\x00\x03\x00\x2a", 7);
    rec::segment s;
    std::string fault;
    ASSERT_TRUE(rec::decode_segment(bytes, "f.vvr", &s, &fault)) << fault;
    EXPECT_EQ(fault, "");
    EXPECT_EQ(s.header.segment, 4u);
    ASSERT_EQ(s.header.families.size(), 1u);
    ASSERT_EQ(s.records.size(), 1u);
    EXPECT_EQ(s.records[0].count, 3u);
}

// A server holds strings far longer than a reader accepts: the writer must
// never write what its own reader refuses, or everything after it is lost.
TEST(RecordingFormat, AValueOverTheBoundStaysReadable) {
    const rec::record big =
        event(1, 0, "set", key(vid_key(100)), std::string(rec::MAX_VALUE + 1, 'x'));
    const std::string bytes = encode(sample_header(), {big, counted(2, record_type::end, 1)});
    rec::segment s;
    std::string fault;
    ASSERT_TRUE(rec::decode_segment(bytes, "f.vvr", &s, &fault)) << fault;
    EXPECT_EQ(fault, "");
    ASSERT_EQ(s.records.size(), 2u);
    EXPECT_EQ(s.records[0].kind, rec::value_kind::other_type);
    EXPECT_EQ(s.records[0].value, "string of 16777217 bytes, more than a recording holds");
    EXPECT_EQ(s.records[1].type, record_type::end);
}

class RecordingFiles : public ::testing::Test {
  protected:
    std::string write(const std::string &name, const std::string &bytes) {
        const std::string path = ::testing::TempDir() + "/" + std::to_string(getpid()) + "-" + name;
        std::ofstream(path, std::ios::binary) << bytes;
        paths_.push_back(path);
        return path;
    }
    ~RecordingFiles() override {
        for (const std::string &p : paths_) {
            std::remove(p.c_str());
        }
    }
    std::vector<std::string> paths_;
};

TEST_F(RecordingFiles, SegmentsOutOfOrderAreRefused) {
    const std::string first =
        write("ring.0", encode(sample_header(1), {counted(1, record_type::end, 0)}));
    const std::string second =
        write("ring.1", encode(sample_header(2), {counted(2, record_type::end, 0)}));
    rec::recording in_order;
    std::string why;
    ASSERT_TRUE(rec::load_recording({first, second}, &in_order, &why)) << why;
    EXPECT_EQ(in_order.segments.size(), 2u);
    rec::recording reversed;
    EXPECT_FALSE(rec::load_recording({second, first}, &reversed, &why));
    EXPECT_NE(why.find("segment 1 does not follow segment 2"), std::string::npos) << why;
    rec::recording missing;
    EXPECT_FALSE(rec::load_recording({first + ".none"}, &missing, &why));
    EXPECT_NE(why.find("No such file"), std::string::npos) << why;
}

TEST(RecordingKeyspace, ApplyFollowsSnapshotsAndEvents) {
    rec::keyspace space;
    rec::apply(snapshot_key(0, 1, "/bridge/vvlan/vid/100", "a"), &space);
    rec::apply(event(1, 0, "set", "/bridge/vvlan/vid/100", "b", 5000), &space);
    ASSERT_EQ(space.size(), 2u);
    EXPECT_EQ((space.at({0, "/bridge/vvlan/vid/100"}).ttl_ms), 5000);
    rec::apply(state(2, record_type::snapshot_begin, 1), &space); // rotation: kept
    EXPECT_EQ(space.size(), 2u);
    rec::apply(event(3, 1, "del", "/bridge/vvlan/vid/100"), &space);
    EXPECT_EQ(space.count({1, "/bridge/vvlan/vid/100"}), 0u);
    rec::apply(state(4, record_type::link, 0, "gone"), &space); // no key: nothing
    EXPECT_EQ(space.size(), 1u);
    rec::apply(state(5, record_type::snapshot_begin, 2), &space); // reconnect: re-read
    EXPECT_TRUE(space.empty());
    rec::apply(snapshot_key(6, 0, "x", "y"), &space);
    rec::apply(state(7, record_type::snapshot_begin, 0), &space); // start: re-read
    EXPECT_TRUE(space.empty());
}

TEST(RecordingKeyspace, DaemonOwnedKeysOfEachFamily) {
    struct sample {
        std::string key;
        bool db0;
        bool db1;
    };
    const sample samples[] = {
        {key(vid_key(100)), true, false},
        {key(family_key(key_family::secu_mode)) + "1", true, false},
        {key(family_key(key_family::cos_dscp)) + "1", true, false},
        {key(family_key(key_family::age_timer)) + "1", true, false},
        {key(port_oper_key(5, 2)), true, false},
        {key(oui_echo_key(OUI, MASK, 3)), true, false},
        {key(mac_learning_key(100, 6, PHONE)), false, false},
        {key(join_request_key(5)), false, true},
        {key(spec_oui_msg_key(OUI, 6)), false, false},
        {key(mac_vlan_key(256)), false, false},
        {key(family_key(key_family::data_end)), true, false},
        {key(family_key(key_family::debug_level)), false, false},
        {key(mvlan_oui_msg_key(3)), true, false},
        {"/somewhere/else", false, false},
    };
    for (const sample &s : samples) {
        EXPECT_EQ(rec::daemon_owned(0, s.key), s.db0) << s.key;
        EXPECT_EQ(rec::daemon_owned(1, s.key), s.db1) << s.key;
    }
}

} // namespace
