// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl watch: a known sequence of events, decoded.
#include <signal.h>

#include <sstream>

#include "ctl_fixture.h"

namespace ctltest {
namespace {

class WatchTest : public CtlTest {
  protected:
    std::unique_ptr<tool_process> watch(std::vector<std::string> args) {
        args.insert(args.begin(), {"-s", server().socket_path(), "watch"});
        auto p = std::make_unique<tool_process>(server().dir(), args);
        p->start();
        // It says so once its subscription is in place.
        EXPECT_TRUE(testsupport::eventually(
            [&] { return p->err().find("vvlanctl: watching ") != std::string::npos; },
            integration::patience(20s)))
            << p->err();
        return p;
    }
    // CLIENT KILL TYPE pubsub would end the tool's subscription too: only
    // the daemon's (the one without vvlanctl's client name) is ended.
    void kill_daemon_subscription() {
        const auto list = redis().command({"CLIENT", "LIST"});
        ASSERT_TRUE(list && list->type != REDIS_REPLY_ERROR);
        std::istringstream lines(std::string(list->str, list->len));
        int killed = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" psub=0 ") != std::string::npos ||
                line.find(" name=vvlanctl-watch ") != std::string::npos) {
                continue;
            }
            const std::string id = line.substr(3, line.find(' ') - 3);
            redis().command({"CLIENT", "KILL", "ID", id});
            ++killed;
        }
        ASSERT_EQ(killed, 1) << std::string(list->str, list->len);
    }
    // "HH:MM:SS.mmm "
    static bool is_timestamp(const std::string &t) {
        const std::string shape = "00:00:00.000 ";
        if (t.size() != shape.size()) {
            return false;
        }
        for (std::size_t i = 0; i < t.size(); ++i) {
            const bool digit = t[i] >= '0' && t[i] <= '9';
            if (shape[i] == '0' ? !digit : t[i] != shape[i]) {
                return false;
            }
        }
        return true;
    }
    // The lines without their timestamps, which must be "HH:MM:SS.mmm ".
    static std::vector<std::string> untimed(const std::string &out) {
        std::vector<std::string> lines;
        std::size_t start = 0;
        for (std::size_t end = out.find('\n'); end != std::string::npos;
             end = out.find('\n', start)) {
            const std::string line = out.substr(start, end - start);
            EXPECT_TRUE(is_timestamp(line.substr(0, 13))) << line;
            lines.push_back(line.substr(13));
            start = end + 1;
        }
        return lines;
    }
};

TEST_F(WatchTest, CountDecodesAKnownSequence) {
    start_daemon(false);
    configure();
    auto w = watch({"--count", "11"});
    // Each step waits for the daemon's last write, so the order of events
    // is fixed; the waits only read.
    ok({"learn", "100", "6", "00e0bb123456"});
    ASSERT_TRUE(
        wait_db(1, join_key(5), integration::bytes({0, 0, 0, 5}), integration::patience(10s)));
    ok({"set", "cos", "5", "46"});
    ASSERT_TRUE(wait_db(0, "/bridge/vvlan/cos_dscp/", integration::bytes({0, 0, 5, 46}),
                        integration::patience(10s)));
    ok({"add", "oui", "0004f2000000"});
    ASSERT_TRUE(testsupport::eventually(
        [&] { return db0("/bridge/vvlan/oui_oper/0004f2000000/ffffff000000/1").has_value(); },
        integration::patience(10s)));
    ok({"age", "100", "6", "00:e0:bb:12:34:56"});
    ok({"unset", "auto", "5"});
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->out() << w->err();
    EXPECT_EQ(untimed(w->out()),
              std::vector<std::string>({
                  "learn vlan 100 phyid 6 (port 5) 00:e0:bb:12:34:56 voice slot 0",
                  "join port 5",
                  "join request port 5",
                  "set cos 5 dscp 46",
                  "cos 5 dscp 46 applied",
                  "add oui 0004f2000000/ffffff000000",
                  "oui add slot 1 0004f2000000/ffffff000000",
                  "age vlan 100 phyid 6 (port 5) 00:e0:bb:12:34:56 voice slot 0",
                  "unset auto port 5",
                  "auto port 5 withdrawn",
                  "leave port 5",
              }));
}

// A re-synchronisation shows as the marks of what it may sweep.
TEST_F(WatchTest, ResynchronisationShowsItsMarks) {
    start_daemon(false);
    configure();
    auto w = watch({"--count", "1"});
    kill_daemon_subscription();
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->err();
    EXPECT_EQ(untimed(w->out()), std::vector<std::string>({"marked db0 /bridge/vvlan/vid/100"}));
}

TEST_F(WatchTest, EndsOnSigint) {
    start_daemon(false);
    auto w = watch({});
    w->signal(SIGINT);
    EXPECT_EQ(w->wait_exit(integration::patience(10s)), 0) << w->err();
    EXPECT_EQ(w->out(), "");
}

// Keys and values come from whoever can write to the server: none of their
// bytes reaches the terminal as a control sequence.
TEST_F(WatchTest, LinesEscapeWhatTheServerHolds) {
    auto w = watch({"--count", "1"});
    redis().set(0, "debugDovVVlan", HOSTILE);
    ASSERT_EQ(w->wait_exit(integration::patience(20s)), 0) << w->out() << w->err();
    EXPECT_FALSE(has_control_bytes(w->out())) << w->out();
    EXPECT_EQ(untimed(w->out()), std::vector<std::string>({"debug level " + HOSTILE_ESCAPED}));
}

} // namespace
} // namespace ctltest
