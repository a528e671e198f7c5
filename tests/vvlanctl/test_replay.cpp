// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl replay: recordings made with rec::encoder from what the real
// daemon did on the fixture's server, played to a second daemon that replay
// starts on a private server of its own, and the two compared.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "recording_file.h"
#include "replay_runner.h"
#include "validators.h"
#include "wire/key_parse.h"

namespace ctltest {
namespace {

const std::string PHONE = "00e0bb123456";

class ReplayTest : public ReplayRunnerTest {
  protected:
    // A one-segment recording, written as the recorder would.
    struct writer {
        rec::segment_header h = [] {
            rec::segment_header s;
            s.start_wall_us = 1795000000000000;
            s.start_mono_us = 1000000;
            s.tool = "vvlanctl test";
            s.server = "test";
            s.families = rec::current_families();
            return s;
        }();
        rec::encoder enc{h};
        std::string bytes = enc.header();
        int64_t now = 1000000;

        void add(rec::record r) {
            now += 1000;
            r.mono_us = now;
            r.wall_us = h.start_wall_us + (now - h.start_mono_us);
            enc.append(r, &bytes);
        }
        static rec::record of(rec::record_type t, uint8_t state = 0) {
            rec::record r;
            r.type = t;
            r.state = state;
            return r;
        }
        void snapshot(const rec::keyspace &space,
                      rec::snapshot_reason why = rec::snapshot_reason::start) {
            add(of(rec::record_type::snapshot_begin, static_cast<uint8_t>(why)));
            for (const auto &[id, v] : space) {
                rec::record r = of(rec::record_type::snapshot_key);
                r.db = id.first;
                r.key = id.second;
                r.kind = v.kind;
                r.value = v.value;
                r.ttl_ms = v.ttl_ms;
                add(r);
            }
            rec::record end = of(rec::record_type::snapshot_end);
            end.count = space.size();
            add(end);
        }
        void event(int db, const std::string &key, const std::optional<std::string> &value) {
            rec::record r = of(rec::record_type::event);
            r.db = db;
            r.event = value ? "set" : "del";
            r.key = key;
            r.kind = value ? rec::value_kind::string : rec::value_kind::absent;
            r.value = value.value_or("");
            add(r);
        }
        // Every write from before to after: the ones made to the daemon
        // first, then the daemon's own, as the recorder would see them.
        void changes(const rec::keyspace &before, const rec::keyspace &after) {
            for (const bool owned : {false, true}) {
                for (const auto &[id, v] : after) {
                    const auto it = before.find(id);
                    if (rec::daemon_owned(id.first, id.second) == owned &&
                        (it == before.end() || it->second.value != v.value)) {
                        event(id.first, id.second, v.value);
                    }
                }
                for (const auto &[id, v] : before) {
                    if (rec::daemon_owned(id.first, id.second) == owned && !after.contains(id)) {
                        event(id.first, id.second, std::nullopt);
                    }
                }
            }
        }
        // Nothing recorded for a while.
        void quiet(std::chrono::seconds d) { now += d.count() * 1000000; }
        void link(rec::link_state s) { add(of(rec::record_type::link, static_cast<uint8_t>(s))); }
        void presence(rec::presence_state s) {
            add(of(rec::record_type::presence, static_cast<uint8_t>(s)));
        }
    };

    // The usual configuration and the daemon's answer to it, recorded
    // around the switch's own daemon; that daemon is gone afterwards, since
    // replay's shares the tree's pid file.
    void configured(rec::keyspace *before) {
        start_daemon(false);
        set_vid(100);
        add_oui(integration::OUI_A);
        auto_port(5);
        barrier();
        *before = capture();
    }
    void stop_fixture_daemon() {
        daemon_.reset();
        unlink(pid_file().c_str());
    }

    // The configuration, then the phone learned and its port joined.
    void phone_story(rec::keyspace *before, rec::keyspace *after) {
        configured(before);
        learn(100, 6, PHONE);
        barrier();
        *after = capture();
        stop_fixture_daemon();
    }

    enum class fault { none, without_join, without_learning, other_vid_copy };
    // A phone learned on phyid 6 (port 5), and the daemon joining the port.
    // without_join leaves the join request out of the recording,
    // without_learning the learning that caused it.
    std::string phone_recording(fault f = fault::none) {
        rec::keyspace before;
        rec::keyspace after;
        phone_story(&before, &after);
        EXPECT_TRUE(after.contains({1, join_key(5)}));
        if (f == fault::without_join) {
            after.erase({1, join_key(5)});
        }
        if (f == fault::other_vid_copy) {
            after[{0, "/bridge/vvlan/vid/100"}].value = std::string("\x12\x34", 2);
        }
        if (f == fault::without_learning) {
            after.erase({0, learning_key(100, 6, PHONE)});
        }
        writer w;
        w.snapshot(before);
        w.changes(before, after);
        return save(w.bytes);
    }

    std::string save(const std::string &bytes) {
        const std::string path = server().dir() + "/rec" + std::to_string(++files_) + ".vvr";
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    std::string trace() { return read_file(trace_path()); }
    bool nothing_left() { return std::filesystem::is_empty(tmp_dir()); }

    int files_ = 0;
};

TEST_F(ReplayTest, PhoneJoinsAsRecorded) {
    const std::string path = phone_recording();
    // Traces from the start, the re-synchronisation with them: the debug
    // key turns them on only once the daemon runs.
    std::ofstream(marker_file()) << "";
    const tool_result r = replay({"--fast", path});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    // The learning and the load-complete marker that followed it.
    EXPECT_NE(r.out.find("replayed 2 events in"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(", 0 differences\n"), std::string::npos) << r.out;
    const std::string t = trace();
    EXPECT_NE(t.find("check_db_validate end"), std::string::npos) << t;
    // The learning handler joining the port.
    EXPECT_NE(t.find("key=/bri/mac/macTblDyn_vvlan/100/6/" + PHONE), std::string::npos) << t;
    EXPECT_NE(t.find("<set_oui_msg: "), std::string::npos) << t;
    EXPECT_NE(t.find("ifx=5, mode=2"), std::string::npos) << t;
    EXPECT_TRUE(nothing_left());

    const tool_result j = replay({"--fast", "--json", path});
    EXPECT_EQ(j.status, 0) << j.err;
    const verdict v = schema_check(server().dir(), "replay", j.out);
    EXPECT_EQ(v.status, 0) << v.says << "\n" << j.out;
}

// The replayed daemon joins where the recorded one did not: a join key the
// replay has and the recording lacks.
TEST_F(ReplayTest, RecordingWithoutTheJoinDiffers) {
    const std::string path = phone_recording(fault::without_join);
    const tool_result r = replay({"--fast", path});
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_NE(r.out.find("join_key_without_join port 5: warning: db 1 " + join_key(5) +
                         ": recorded none, replayed 0x"),
              std::string::npos)
        << r.out;
    EXPECT_EQ(kinds(r.out.substr(0, r.out.find("audit of"))),
              std::vector<std::string>{"join_key_without_join port 5"})
        << r.out;
    EXPECT_TRUE(nothing_left());

    const tool_result j = replay({"--fast", "-j", path});
    EXPECT_EQ(j.status, 1) << j.err;
    const verdict v = schema_check(server().dir(), "replay", j.out);
    EXPECT_EQ(v.status, 0) << v.says << "\n" << j.out;
    EXPECT_NE(j.out.find("\"kind\": \"join_key_without_join\""), std::string::npos) << j.out;
}

// Any other copy of the daemon's: its key and both values, in hex for bytes.
TEST_F(ReplayTest, OtherCopyDiffers) {
    const tool_result r = replay({"--fast", phone_recording(fault::other_vid_copy)});
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_EQ(r.out.rfind("published_differs: warning: db 0 /bridge/vvlan/vid/100: recorded "
                          "0x1234, replayed 0x",
                          0),
              0u)
        << r.out;
    EXPECT_EQ(kinds(r.out.substr(0, r.out.find("audit of"))),
              std::vector<std::string>{"published_differs"})
        << r.out;
}

// The other way: the recording holds the port joined (its join request and
// mode 2 key) but not the learning, so the replayed daemon never joins.
TEST_F(ReplayTest, RecordingWithoutTheLearningDiffers) {
    const tool_result r = replay({"--fast", phone_recording(fault::without_learning)});
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_NE(
        r.out.find("join_key_missing port 5: critical: db 1 " + join_key(5) + ": recorded 0x"),
        std::string::npos)
        << r.out;
    EXPECT_EQ(kinds(r.out.substr(0, r.out.find("audit of"))),
              (std::vector<std::string>{"join_key_missing port 5", "join_key_missing port 5"}))
        << r.out;
}

TEST_F(ReplayTest, RecordingWithAFaultIsRefused) {
    writer w;
    w.snapshot({{{1, "/bridge/vvlan/vid/100"}, {rec::value_kind::string, "", rec::NO_TTL}}});
    w.event(0, learning_key(100, 6, PHONE), "");
    const std::string bytes = w.bytes.substr(0, w.bytes.size() - 3);
    const tool_result r = replay({"--fast", save(bytes)});
    EXPECT_EQ(r.status, 3) << r.out << r.err;
    EXPECT_NE(r.err.find("byte "), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(nothing_left());
    EXPECT_FALSE(std::filesystem::exists(trace_path()));
}

// The subscription lost while the process lived: a learning then is
// missed, and the re-synchronisation does not bring it back, so the port
// stays out of the voice VLAN, as on the switch.
TEST_F(ReplayTest, LearningWhileUnsubscribedIsMissed) {
    rec::keyspace before;
    configured(&before);
    stop_fixture_daemon();
    writer w;
    w.snapshot(before);
    w.presence(rec::presence_state::subscribed);
    w.presence(rec::presence_state::connected);
    w.event(0, learning_key(100, 6, PHONE), "");
    w.presence(rec::presence_state::subscribed);
    const tool_result r = replay({"--fast", save(w.bytes)});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find(", 0 differences\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("voice_address_not_joined port 5"), std::string::npos) << r.out;
    EXPECT_TRUE(nothing_left());
}

} // namespace
} // namespace ctltest

namespace ctltest {
namespace {

// What changed while the recorder's own connection was lost reaches the
// daemon as the difference its reconnect snapshot shows.
TEST_F(ReplayTest, ReconnectSnapshotIsPlayedAsItsDifference) {
    rec::keyspace before;
    rec::keyspace after;
    phone_story(&before, &after);
    writer w;
    w.snapshot(before);
    w.link(rec::link_state::lost);
    w.link(rec::link_state::restored);
    w.snapshot(after, rec::snapshot_reason::reconnect);
    const tool_result r = replay({"--fast", save(w.bytes)});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    // The learning and the marker written meanwhile.
    EXPECT_NE(r.out.find("replayed 2 events in"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("the recorder's connection was lost"), std::string::npos) << r.err;
}

// --until: the recording's keyspace at that time, and nothing played after.
TEST_F(ReplayTest, UntilStopsAtTheRecordedTime) {
    const std::string path = phone_recording();
    // writer's recordings start at 2026-11-18T11:06:40Z; the snapshot ends a
    // few milliseconds later, the phone comes after it.
    const tool_result r = replay({"--fast", "--until", "2026-11-18T11:06:40.000Z", path});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("replayed 0 events in"), std::string::npos) << r.out;
    // The same time as watch prints it, in a zone of its own; and a
    // second later, after everything.
    for (const auto &[until, played] : std::vector<std::pair<std::string, std::string>>{
             {"2026-11-18T12:36:40+01:30", "0"}, {"2026-11-18T10:06:41.000-01:00", "2"}}) {
        const tool_result z = replay({"--fast", "--until", until, path});
        EXPECT_EQ(z.status, 0) << until << "\n" << z.out << z.err;
        EXPECT_NE(z.out.find("replayed " + played + " events in"), std::string::npos)
            << until << "\n"
            << z.out;
    }
}

// --on: a given server, refused while it holds anything, emptied after.
TEST_F(ReplayTest, OnAGivenServer) {
    const std::string path = phone_recording();
    redis().flushall();
    fwd_set("/bridge/mac_vlan/table/256", "x");
    tool_result r = replay({"--fast", "--on", server().socket_path(), path});
    EXPECT_EQ(r.status, 3) << r.out << r.err;
    EXPECT_NE(r.err.find("database 0 is not empty"), std::string::npos) << r.err;
    EXPECT_EQ(db0("/bridge/mac_vlan/table/256"), "x");
    fwd_del("/bridge/mac_vlan/table/256");
    redis().config_set("notify-keyspace-events", "");
    r = replay({"--fast", "--on", server().socket_path(), path});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(redis().keys(0, "*").empty());
    EXPECT_TRUE(redis().keys(1, "*").empty());
    // Its keyspace events as they were.
    EXPECT_EQ(redis().config_get("notify-keyspace-events"), "");
}

} // namespace
} // namespace ctltest

namespace ctltest {
namespace {

// A daemon that went away is stopped and started again when it is back;
// what was learned meanwhile is not known to it (the re-synchronisation
// does not re-read learnings), so its port stays out, as on the switch.
TEST_F(ReplayTest, DaemonAwayMissesWhatHappened) {
    rec::keyspace before;
    configured(&before);
    stop_fixture_daemon();
    writer w;
    w.snapshot(before);
    w.presence(rec::presence_state::subscribed);
    w.presence(rec::presence_state::absent);
    w.event(0, learning_key(100, 6, PHONE), "");
    w.presence(rec::presence_state::subscribed);
    const tool_result r = replay({"--fast", save(w.bytes)});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("voice_address_not_joined port 5"), std::string::npos) << r.out;
    // Neither daemon saw the learning's event.
    const std::string t = trace();
    EXPECT_NE(t.find("get_data_end_pmsg_f"), std::string::npos) << t;
    EXPECT_EQ(t.find("key=/bri/mac/macTblDyn_vvlan/100/6/" + PHONE), std::string::npos) << t;
    EXPECT_NE(r.out.find("replayed 1 events in"), std::string::npos) << r.out;
}

} // namespace
} // namespace ctltest

namespace ctltest {
namespace {

// SIGTERM (as SIGINT) while it waits for the next recorded event: the
// daemon and the server are stopped and their directory is gone.
TEST_F(ReplayTest, SignalStopsEverything) {
    rec::keyspace before;
    configured(&before);
    stop_fixture_daemon();
    writer w;
    w.snapshot(before);
    w.presence(rec::presence_state::subscribed); // the pace counts from here
    w.quiet(600s);
    w.event(0, learning_key(100, 6, PHONE), "");
    const pc_tool t = start_replay({save(w.bytes)});
    // Running once its traces show the barrier after the warm-up.
    ASSERT_TRUE(testsupport::eventually(
        [&] { return trace().find("get_data_end_pmsg_f") != std::string::npos; },
        integration::patience(20s)))
        << read_file(t.err);
    pid_t daemon_pid = 0;
    std::ifstream(pid_file()) >> daemon_pid;
    ASSERT_GT(daemon_pid, 0);
    kill(t.pid, SIGTERM);
    const tool_result r = wait_pc_tool(t, integration::patience(20s));
    EXPECT_EQ(r.status, 3) << r.out << r.err;
    EXPECT_NE(r.err.find("interrupted"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_TRUE(nothing_left());
    EXPECT_NE(kill(daemon_pid, 0), 0) << "the daemon is still running";
}

} // namespace
} // namespace ctltest
