// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl history over recordings made with the recorder's own encoder:
// the timeline in watch's words, what the keys prove the daemon did, the
// filters, the JSON lines against their schema, and damaged or foreign
// files. No server is involved: history needs none.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>

#include "recording_samples.h"
#include "tool_process.h"
#include "validators.h"

namespace ctltest {
namespace {

using namespace rectest;
using rec::record_type;

const mac_addr PHONE2{0x00, 0xe0, 0xbb, 0x65, 0x43, 0x21};

// START_WALL in UTC, as history prints it with TZ=UTC.
const std::string DAY = "2026-11-18T11:06:";

// Port 5 (phyid 6) joined with one phone; a re-synchronisation sweeps its
// mode 2 key, the phone ages out and the aging thread withdraws the join
// request; the daemon loses its subscription, a phone is learned meanwhile;
// the recorder reconnects.
std::vector<rec::record> story() {
    return {
        state(0, record_type::snapshot_begin, 0),
        snapshot_key(0, 0, key(oui_echo_key(OUI, MASK, 0)), ""),
        snapshot_key(0, 0, key(port_oper_key(5, 2)), ""),
        snapshot_key(0, 1, key(join_request_key(5)), ""),
        snapshot_key(0, 0, key(mac_learning_key(100, 6, PHONE)), ""),
        counted(0, record_type::snapshot_end, 4),
        state(0.5, record_type::presence, 0, "id=7 name=tukredis"),
        event(1, 0, "expire", key(port_oper_key(5, 2)), "", 3600000),
        event(2, 0, "del", key(port_oper_key(5, 2))),
        event(2.5, 0, "del", key(port_oper_key(6, 2))),
        event(3, 0, "del", key(mac_learning_key(100, 6, PHONE))),
        event(4, 1, "del", key(join_request_key(5))),
        state(5, record_type::presence, 1, "id=7 name=tukredis"),
        event(6, 0, "set", key(mac_learning_key(100, 6, PHONE2)), ""),
        state(7, record_type::presence, 0, "id=7 name=tukredis"),
        state(8, record_type::link, 0, "Connection reset by peer"),
        state(9, record_type::link, 1),
        state(9, record_type::snapshot_begin, 2),
        snapshot_key(9, 1, key(vid_key(100)), std::string("\x00\x64", 2)),
        counted(9, record_type::snapshot_end, 1),
        state(10, record_type::presence, 2),
        event(11, 1, "set", key(vid_key(100)), std::string("\x00\x64", 2)),
        counted(12, record_type::end, 7, "SIGTERM"),
    };
}

class HistoryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = ::testing::TempDir() + "/history-" + std::to_string(getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name();
        ASSERT_EQ(std::system(("mkdir -p '" + dir_ + "'").c_str()), 0);
    }
    std::string write(const std::string &name, const std::string &bytes) {
        const std::string path = dir_ + "/" + name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    tool_result history(std::vector<std::string> args) {
        args.insert(args.begin(), "history");
        return run_tool(dir_, args, {{"TZ", "UTC"}});
    }
    // The lines of text without their stamps (checked apart).
    static std::vector<std::string> texts(const std::string &out) {
        std::vector<std::string> lines;
        std::size_t start = 0;
        while (start < out.size()) {
            std::size_t end = out.find('\n', start);
            end = end == std::string::npos ? out.size() : end;
            const std::string line = out.substr(start, end - start);
            const std::size_t space = line.find(' ');
            lines.push_back(space == std::string::npos ? line : line.substr(space + 1));
            start = end + 1;
        }
        return lines;
    }
    std::string dir_;
};

TEST_F(HistoryTest, TellsTheTimelineAndWhatTheDaemonDid) {
    const std::string file = write("rec.vvr", encode(sample_header(), story()));
    const tool_result r = history({file});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<std::string> want = {
        "snapshot at start: 4 keys",
        "the daemon is subscribed",
        "marked db0 /bridge/vvlan/port_oper/5/2",
        "leave port 5; a re-synchronisation swept port 5's mode 2 key",
        // No mark before it: a delete, not a sweep.
        "leave port 6",
        "age vlan 100 phyid 6 (port 5) 00:e0:bb:12:34:56 voice slot 0",
        "join request withdrawn port 5; the aging thread deleted port 5's join request (left "
        "the voice VLAN)",
        "the daemon's subscription was lost (connected, not subscribed)",
        "learn vlan 100 phyid 6 (port 5) 00:e0:bb:65:43:21 voice slot 0; not seen by the daemon "
        "(it was not subscribed)",
        "the daemon subscribed again",
        "the recorder lost its connection: Connection reset by peer",
        "the recorder's connection is back",
        "reconnect: the recorder re-read the keyspace (1 key)",
        "the daemon is absent",
        "set vid 100",
        "the recording ended: SIGTERM (7 events)",
    };
    EXPECT_EQ(texts(r.out), want) << r.out;
    EXPECT_EQ(r.out.rfind(DAY + "40.000+00:00 snapshot at start", 0), 0u) << r.out;
    EXPECT_NE(r.out.find(DAY + "42.500+00:00 leave port 6\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "");
}

TEST_F(HistoryTest, AnotherVoiceAddressLeftIsNoAging) {
    std::vector<rec::record> records = {
        state(0, record_type::snapshot_begin, 0),
        snapshot_key(0, 0, key(oui_echo_key(OUI, MASK, 0)), ""),
        snapshot_key(0, 0, key(mac_learning_key(100, 6, PHONE)), ""),
        snapshot_key(0, 0, key(mac_learning_key(100, 6, PHONE2)), ""),
        counted(0, record_type::snapshot_end, 3),
        event(3, 0, "del", key(mac_learning_key(100, 6, PHONE))),
        event(4, 1, "del", key(join_request_key(5))),
    };
    const tool_result r = history({write("rec.vvr", encode(sample_header(), records))});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_FALSE(texts(r.out).empty());
    EXPECT_EQ(texts(r.out).back(), "join request withdrawn port 5") << r.out;
}

TEST_F(HistoryTest, FiltersByKeyAndTime) {
    const std::string file = write("rec.vvr", encode(sample_header(), story()));
    const auto events_of = [&](std::vector<std::string> args) {
        args.push_back(file);
        const tool_result r = history(args);
        EXPECT_EQ(r.status, 0) << r.err;
        std::vector<std::string> out;
        for (const std::string &t : texts(r.out)) {
            // The recorder's own records are shown whatever the key filters.
            bool own = false;
            for (const char *start : {"the daemon", "the record", "snapshot", "reconnect"}) {
                own = own || t.rfind(start, 0) == 0;
            }
            if (!own) {
                out.push_back(t);
            }
        }
        return out;
    };
    EXPECT_EQ(events_of({"port", "6"}), std::vector<std::string>{"leave port 6"});
    EXPECT_EQ(events_of({"family", "vid"}), std::vector<std::string>{"set vid 100"});
    const std::vector<std::string> one = events_of({"address", "00e0bb654321"});
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one.front().rfind("learn vlan 100", 0), 0u);
    EXPECT_EQ(events_of({"oui", "00:e0:bb:00:00:00", "family", "mac_learning"}).size(), 2u);
    // From 6 s after the start to 11 s, absolute as printed.
    const tool_result r = history({"--since", "6s", "--until", DAY + "51.000+00:00", file});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_FALSE(texts(r.out).empty());
    EXPECT_EQ(texts(r.out).front(),
              "learn vlan 100 phyid 6 (port 5) 00:e0:bb:65:43:21 voice slot 0; not seen by the "
              "daemon (it was not subscribed)")
        << r.out;
    EXPECT_EQ(texts(r.out).back(), "set vid 100") << r.out;
    // In another zone's offset, the same instant.
    const tool_result z = history({"--since", "2026-11-18T12:06:46.000+01:00", file});
    EXPECT_EQ(texts(z.out), texts(history({"--since", "6s", file}).out)) << z.out;
    const tool_result bad = history({"--since", "yesterday", file});
    EXPECT_EQ(bad.status, 3);
    EXPECT_EQ(bad.out, "");
}

TEST_F(HistoryTest, JsonLinesFollowTheSchema) {
    std::vector<rec::record> records = story();
    rec::record other = event(11.5, 1, "hset", "/somewhere/else", "hash", 5000);
    other.kind = rec::value_kind::other_type;
    records.insert(records.end() - 1, other);
    const std::string file = write("rec.vvr", encode(sample_header(), records));
    const tool_result r = history({"--json", file});
    ASSERT_EQ(r.status, 0) << r.err;
    const verdict v = schema_check(dir_, "history", r.out, true);
    EXPECT_EQ(v.status, 0) << v.says << r.out;
    EXPECT_NE(
        r.out.find(
            R"("record":"event","mono_us":16000000,"db":1,"event":"set","key":"/bridge/vvlan/vid/100","family":"vid","port":null,"value":{"hex":"0064"},"ttl_ms":null,"presence":"absent","text":"set vid 100"})"),
        std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find(R"("value":{"type":"hash"},"ttl_ms":5000)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(R"({"schema_version":1,"time":")" + DAY +
                         R"(48.000+00:00","record":"link","mono_us":13000000,"db":null)"),
              std::string::npos)
        << r.out;
    // -j before the command, as for watch.
    const tool_result j = run_tool(dir_, {"-j", "history", file}, {{"TZ", "UTC"}});
    EXPECT_EQ(j.out, r.out);
}

TEST_F(HistoryTest, DamagedFileShowsTheRecordsBeforeThenTheFault) {
    std::vector<std::size_t> ends;
    const std::string bytes = encode(sample_header(), story(), &ends);
    // Cut two bytes into the record that says the connection is back (the
    // 17th; ends[0] is the header's end).
    const std::size_t cut = ends[16] + 2;
    const std::string file = write("rec.vvr", bytes.substr(0, cut));
    const tool_result r = history({file});
    EXPECT_EQ(r.status, 3);
    const std::vector<std::string> lines = texts(r.out);
    ASSERT_EQ(lines.size(), 11u) << r.out;
    EXPECT_EQ(lines.back(), "the recorder lost its connection: Connection reset by peer");
    EXPECT_EQ(r.err.rfind("vvlanctl: history: " + file + ": byte " + std::to_string(ends[16]), 0),
              0u)
        << r.err;
}

TEST_F(HistoryTest, NoRecordingPrintsNothing) {
    const tool_result text = history({write("notes.txt", "just some notes\n")});
    EXPECT_EQ(text.status, 3);
    EXPECT_EQ(text.out, "");
    EXPECT_NE(text.err.find("not a vvlanctl recording"), std::string::npos) << text.err;
    const tool_result missing = history({dir_ + "/none.vvr"});
    EXPECT_EQ(missing.status, 3);
    EXPECT_EQ(missing.out, "");
    // A ring's files given newer first.
    const std::string older = write("ring.0", encode(sample_header(1), story()));
    const std::string newer = write("ring.1", encode(sample_header(2), {}));
    const tool_result reversed = history({newer, older});
    EXPECT_EQ(reversed.status, 3);
    EXPECT_EQ(reversed.out, "");
    EXPECT_EQ(history({older, newer}).status, 0);
    const tool_result none = history({});
    EXPECT_EQ(none.status, 3);
}

// As every command: a reader gone before the output is written ends it by
// SIGPIPE, quietly; output that cannot be written is an error.
TEST_F(HistoryTest, OutputGoesThroughThePipeRules) {
    const std::string file = write("rec.vvr", encode(sample_header(), story()));
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    close(fds[0]);
    {
        tool_process p(dir_, {"history", file});
        p.start_writing_to(fds[1]);
        close(fds[1]);
        EXPECT_EQ(p.wait_exit(std::chrono::seconds(60)), 128 + SIGPIPE) << p.err();
        EXPECT_EQ(p.err(), "");
    }
    tool_process full(dir_, {"history", "--json", file});
    full.output_to("/dev/full");
    full.start();
    EXPECT_EQ(full.wait_exit(std::chrono::seconds(60)), 3) << full.err();
    EXPECT_NE(full.err().find("error writing the output"), std::string::npos) << full.err();
}

} // namespace
} // namespace ctltest
