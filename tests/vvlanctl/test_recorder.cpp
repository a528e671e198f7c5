// SPDX-License-Identifier: BSD-3-Clause
// The flight recorder against the real daemon: what record writes is the
// keyspace the server holds, event by event; a subscription the daemon lost
// is in it; a ring keeps two files that each start from a snapshot.
#include <csignal>
#include <sstream>

#include "recording_file.h"
#include "replay_runner.h"
#include "testsupport/eventually.h"
#include "testsupport/server_features.h"
#include "wire/key_parse.h"

namespace ctltest {
namespace {

class RecorderTest : public ReplayRunnerTest {
  protected:
    std::string path(const std::string &name) { return server().dir() + "/" + name; }

    // vvlanctl record running in the background until stop_recording().
    // who: options before the command (--user, --pass).
    void start_recording(std::vector<std::string> options, std::vector<std::string> who = {}) {
        std::vector<std::string> args = {"-s", server().socket_path()};
        args.insert(args.end(), who.begin(), who.end());
        for (const char *a : {"record", "-o", "", "--presence-interval", "100ms"}) {
            args.push_back(*a != '\0' ? a : path("session.vvr"));
        }
        args.insert(args.end(), options.begin(), options.end());
        recorder_ = std::make_unique<tool_process>(server().dir(), args);
        recorder_->start();
        ASSERT_TRUE(testsupport::eventually(
            [&] { return recorder_->err().find("vvlanctl: recording ") != std::string::npos; },
            integration::patience(10s)))
            << recorder_->err();
        // Its snapshot is written once the first presence is.
        ASSERT_TRUE(
            testsupport::eventually([&] { return has_presence(rec::presence_state::subscribed); },
                                    integration::patience(10s)));
    }
    void stop_recording() {
        recorder_->signal(SIGINT);
        ASSERT_EQ(recorder_->wait_exit(integration::patience(10s)), 0) << recorder_->err();
        EXPECT_NE(recorder_->err().find("vvlanctl: recorded "), std::string::npos)
            << recorder_->err();
    }
    rec::recording load(std::vector<std::string> files = {"session.vvr"}) {
        for (std::string &f : files) {
            f = path(f);
        }
        rec::recording r;
        std::string why;
        EXPECT_TRUE(rec::load_recording(files, &r, &why)) << why;
        return r;
    }
    // Whether the recording so far holds nth presence records of state s
    // (or, with subscribed false, of any state but subscribed).
    bool has_presence(rec::presence_state s, std::size_t nth = 1, bool exactly = true) {
        rec::recording r;
        std::string why;
        if (!rec::load_recording({path("session.vvr")}, &r, &why) || r.segments.empty()) {
            return false;
        }
        std::size_t seen = 0;
        for (const rec::record &x : r.segments.back().records) {
            seen += x.type == rec::record_type::presence &&
                    (x.state == static_cast<uint8_t>(s)) == exactly;
        }
        return seen >= nth;
    }
    // The keyspace the records of all segments describe at their end.
    static rec::keyspace final_keyspace(const rec::recording &r) {
        rec::keyspace space;
        for (const rec::segment &s : r.segments) {
            for (const rec::record &x : s.records) {
                rec::apply(x, &space);
            }
        }
        return space;
    }
    static std::string describe(const rec::keyspace &space) {
        std::ostringstream out;
        for (const auto &[id, v] : space) {
            out << id.first << " " << id.second << " (" << v.value.size() << " bytes)\n";
        }
        return out.str();
    }
    // Keys and values alike, time-to-live aside (a TTL is as last read).
    static bool same_keys_and_values(const rec::keyspace &a, const rec::keyspace &b) {
        if (a.size() != b.size()) {
            return false;
        }
        for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
            if (i->first != j->first || i->second.value != j->second.value) {
                return false;
            }
        }
        return true;
    }
    // The daemon's subscription connection: the one with its patterns.
    long long daemon_subscription_id() {
        const auto list = redis().command({"CLIENT", "LIST"});
        std::istringstream lines(std::string(list->str, list->len));
        std::string line;
        while (std::getline(lines, line)) {
            if (line.find(" psub=11 ") != std::string::npos) {
                return std::stoll(line.substr(line.find("id=") + 3));
            }
        }
        return -1;
    }

    // The recording played to a fresh daemon on a server of replay's own,
    // the fixture's daemon stopped first (the two share the tree's pid
    // file): replay's status and report.
    tool_result replay_into_fresh_daemon(const std::vector<std::string> &files) {
        daemon().kill_now();
        std::vector<std::string> args = {"--fast"};
        for (const std::string &f : files) {
            args.push_back(path(f));
        }
        return replay(args);
    }
    void expect_replayed_equal(const std::vector<std::string> &files) {
        const tool_result played = replay_into_fresh_daemon(files);
        EXPECT_EQ(played.status, 0) << played.out << played.err;
        EXPECT_NE(played.out.find(", 0 differences\n"), std::string::npos) << played.out;
    }

    std::unique_ptr<tool_process> recorder_;
};

// A session of the management plane and the forwarding layer: the
// recording's keyspace at its end is the server's, key for key and byte for
// byte, and it holds the daemon's own writes as events.
TEST_F(RecorderTest, SessionIsRecordedKeyForKey) {
    start_daemon(false);
    ok({"set", "vid", "200"});
    sync();
    start_recording({});
    ok({"set", "vid", "100", "--replace"});
    configure();
    phone_joins();
    ok({"set", "auto", "7"});
    ok({"learn", "100", "8", "00:e0:bb:00:00:07"});
    ok({"learn", "100", "8", "00:11:22:33:44:55"});
    ok({"age", "100", "8", "00:11:22:33:44:55"});
    sync();
    stop_recording();

    const rec::recording r = load();
    ASSERT_EQ(r.segments.size(), 1u);
    EXPECT_EQ(r.fault, "");
    const rec::segment &s = r.segments[0];
    EXPECT_EQ(s.header.families.size(), KEY_FAMILIES.size());
    ASSERT_GE(s.records.size(), 3u);
    EXPECT_EQ(s.records[0].type, rec::record_type::snapshot_begin);
    // The snapshot holds what was there before: vid 200 in both databases.
    rec::keyspace at_start;
    std::size_t i = 0;
    for (; s.records[i].type != rec::record_type::snapshot_end; ++i) {
        rec::apply(s.records[i], &at_start);
    }
    EXPECT_TRUE(at_start.contains({1, "/bridge/vvlan/vid/200"})) << describe(at_start);
    EXPECT_TRUE(at_start.contains({0, "/bridge/vvlan/vid/200"})) << describe(at_start);
    EXPECT_EQ(s.records[i].count, at_start.size());
    EXPECT_EQ(s.records.back().type, rec::record_type::end);

    // The daemon's join of port 7, as events with the values read after.
    bool join_seen = false;
    for (const rec::record &x : s.records) {
        if (x.type == rec::record_type::event && x.db == 1 && x.key == join_key(7)) {
            join_seen = x.event == "set" && x.kind == rec::value_kind::string &&
                        x.value == *db1(join_key(7));
        }
    }
    EXPECT_TRUE(join_seen);
    const rec::keyspace recorded = final_keyspace(r);
    const rec::keyspace present = capture();
    EXPECT_TRUE(same_keys_and_values(recorded, present)) << "recorded:\n"
                                                         << describe(recorded) << "server:\n"
                                                         << describe(present);
    // Played to a fresh daemon, it ends in the same databases.
    expect_replayed_equal({"session.vvr"});
}

// The daemon's subscription killed while its process lives, and kept out
// for a while: the recording shows it connected but not subscribed, the
// learning it missed meanwhile, and the re-synchronisation's sweep of the
// joined port's mode 2 key when it is back (both prescribed).
TEST_F(RecorderTest, KilledSubscriptionIsRecorded) {
    if (!testsupport::features_of(redis()).acl_users()) {
        GTEST_SKIP() << "keeping the daemon's subscription out needs ACL users (Redis 6.0)";
    }
    start_daemon(false);
    configure();
    phone_joins();
    ok({"set", "auto", "7"});
    sync();
    start_recording({});
    redis().command({"ACL", "SETUSER", "default", "-psubscribe"});
    const long long id = daemon_subscription_id();
    ASSERT_GE(id, 0);
    redis().command({"CLIENT", "KILL", "ID", std::to_string(id)});
    // Refused, its bus library reconnects: connected, or for a moment not.
    ASSERT_TRUE(testsupport::eventually(
        [&] { return has_presence(rec::presence_state::subscribed, 1, false); },
        integration::patience(10s)));
    ok({"learn", "100", "8", "00:e0:bb:00:00:07"}); // never seen by the daemon
    redis().command({"ACL", "SETUSER", "default", "+psubscribe"});
    ASSERT_TRUE(
        testsupport::eventually([&] { return has_presence(rec::presence_state::subscribed, 2); },
                                integration::patience(20s)));
    sync();
    stop_recording();
    EXPECT_FALSE(db1(join_key(7)).has_value());
    EXPECT_FALSE(db0(port_key(5, 2)).has_value()) << "the sweep of the joined port's mode 2 key";
    EXPECT_TRUE(db1(join_key(5)).has_value());

    const rec::recording r = load();
    bool swept = false;
    for (const rec::record &x : r.segments[0].records) {
        swept |= x.type == rec::record_type::event && x.db == 0 && x.key == port_key(5, 2) &&
                 x.event == "del";
    }
    EXPECT_TRUE(swept);
    EXPECT_TRUE(same_keys_and_values(final_keyspace(r), capture()));

    // history names the loss and the sweep.
    const tool_result h = ok({"history", path("session.vvr")});
    // The refused bus library drops both its connections and tries again:
    // absent between the tries, or connected without its subscription.
    EXPECT_TRUE(h.out.find("the daemon is absent") != std::string::npos ||
                h.out.find("subscription was lost") != std::string::npos)
        << h.out;
    EXPECT_NE(h.out.find("the daemon subscribed again"), std::string::npos) << h.out;
    EXPECT_NE(h.out.find("not seen by the daemon"), std::string::npos) << h.out;
    EXPECT_NE(h.out.find("swept"), std::string::npos) << h.out;
    // Replayed, the daemon loses the same learning and sweeps the same key.
    expect_replayed_equal({"session.vvr"});
}

// The recorder never writes: a user that may only read, subscribe and
// list the clients records the session, and the server's ACL log shows no
// command refused to it.
TEST_F(RecorderTest, ReadingUserIsEnough) {
    const testsupport::server_features features = testsupport::features_of(redis());
    if (!features.acl_users()) {
        GTEST_SKIP() << "a user that may only read needs ACL users (Redis 6.0)";
    }
    std::vector<std::string> rule = {
        "ACL",     "SETUSER",      "reader",          "on",          ">secret",
        "~*",      "-@all",        "+@read",          "+psubscribe", "+ping",
        "+select", "+client|list", "+client|setname", "+time",       "+config|get",
        "+auth",   "+hello"};
    if (features.channel_permissions()) {
        rule.push_back("&*");
    }
    redis().command(rule);
    start_daemon(false);
    start_recording({"--count", "6"}, {"--user", "reader", "--pass", "secret"});
    configure(); // vid, OUI, auto and their copies: more than six events
    ASSERT_EQ(recorder_->wait_exit(integration::patience(10s)), 0) << recorder_->err();
    EXPECT_NE(recorder_->err().find("recorded 6 events"), std::string::npos) << recorder_->err();
    const rec::recording r = load();
    std::size_t events = 0;
    for (const rec::record &x : r.segments[0].records) {
        events += x.type == rec::record_type::event;
    }
    EXPECT_EQ(events, 6u);
    // Not one command refused to it: it tried to write nothing.
    const auto refused = redis().command({"ACL", "LOG"});
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->elements, 0u);
}

// Events off: the recorder names the flags and how to set them, exits 1,
// and leaves the setting as it was.
TEST_F(RecorderTest, MissingEventFlagsAreNamedNotSet) {
    redis().config_set("notify-keyspace-events", "");
    const tool_result r = ctl({"record", "-o", path("session.vvr"), "--count", "1"});
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_NE(r.err.find("lacks the flags \"Kg$xe\""), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("record never writes to the server"), std::string::npos) << r.err;
    EXPECT_EQ(redis().config_get("notify-keyspace-events"), "");
}

// A ring of 64 KiB: two files, the newer one segment after the older, each
// beginning with a snapshot; the newer alone describes the server's
// keyspace at the end.
TEST_F(RecorderTest, RingKeepsTwoFilesEachFromASnapshot) {
    start_daemon(false);
    configure();
    start_recording({"--ring-size", "64k"});
    // Learned and aged again at the forwarding layer's pace: many events,
    // a small keyspace.
    for (int i = 0; i < 1200; ++i) {
        char key[64];
        std::snprintf(key, sizeof key, "/bri/mac/macTblDyn_vvlan/100/9/001122%06x", i);
        fwd_set(key, "");
        fwd_del(key);
    }
    phone_joins();
    stop_recording();
    const rec::recording both = load({"session.vvr.1", "session.vvr"});
    ASSERT_EQ(both.segments.size(), 2u);
    EXPECT_GE(both.segments[1].header.segment, 2u);
    const rec::recording newer = load({"session.vvr"});
    ASSERT_FALSE(newer.segments[0].records.empty());
    EXPECT_EQ(newer.segments[0].records[0].type, rec::record_type::snapshot_begin);
    EXPECT_EQ(newer.segments[0].records[0].state,
              static_cast<uint8_t>(rec::snapshot_reason::rotation));
    EXPECT_TRUE(same_keys_and_values(final_keyspace(newer), capture()));
    // The newer file alone replays from its own snapshot.
    expect_replayed_equal({"session.vvr"});
}

} // namespace
} // namespace ctltest
