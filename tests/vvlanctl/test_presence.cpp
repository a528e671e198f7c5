// SPDX-License-Identifier: BSD-3-Clause
// Whether the daemon is there: the published keys outlive it, so show and
// check read its presence from the server's client list.
#include "ctl_fixture.h"
#include "testsupport/server_features.h"

namespace ctltest {
namespace {

class PresenceTest : public CtlTest {
  protected:
    // check, repeated until its status is want or the deadline passes.
    tool_result check_until(int want, std::chrono::milliseconds deadline) {
        const auto until = std::chrono::steady_clock::now() + deadline;
        tool_result r = ctl({"check"});
        while (r.status != want && std::chrono::steady_clock::now() < until) {
            std::this_thread::sleep_for(20ms);
            r = ctl({"check"});
        }
        return r;
    }
};

TEST_F(PresenceTest, RunningDaemonIsShownSubscribed) {
    start_daemon(false);
    configure();
    const tool_result r = ok({"show"});
    EXPECT_EQ(r.out.rfind("daemon: subscribed since 20", 0), 0u) << r.out;
    EXPECT_NE(r.out.find(")\nload marker: configured 1002, applied 1002\n"), std::string::npos)
        << r.out;
    const tool_result j = ok({"show", "--json"});
    EXPECT_NE(j.out.find(R"("state": "subscribed",
    "subscribed": true,)"),
              std::string::npos)
        << j.out;
    EXPECT_NE(j.out.find(R"("client_name": "tukredis")"), std::string::npos) << j.out;
}

// Killed: show says so, check is CRITICAL within one ping interval (the
// default, 10 s) and derives nothing from what the daemon left behind; the
// advice (start it, sync) clears it.
TEST_F(PresenceTest, KilledDaemonIsCriticalAndRestartingItClearsIt) {
    start_daemon(false);
    configure();
    ok({"set", "security", "on"});
    sync();
    EXPECT_EQ(ctl({"check"}).status, 0);
    daemon().kill_now();
    const tool_result r = check_until(2, integration::patience(10s));
    EXPECT_EQ(r.status, 2) << r.out << r.err;
    EXPECT_EQ(kinds(r.out), std::vector<std::string>({"daemon_not_subscribed"})) << r.out;
    EXPECT_NE(r.out.find("daemon_not_subscribed: critical: "), std::string::npos) << r.out;
    // Nothing that needs the daemon is reported while it is gone.
    ok({"set", "auto", "7"});
    EXPECT_EQ(kinds(ctl({"check"}).out), std::vector<std::string>({"daemon_not_subscribed"}));
    const tool_result s = ok({"show"});
    EXPECT_EQ(s.out.rfind("daemon: NOT connected", 0), 0u) << s.out;
    const tool_result j = ok({"show", "--json"});
    EXPECT_NE(j.out.find(R"("subscribed": false,)"), std::string::npos) << j.out;

    start_daemon(false);
    sync();
    const tool_result after = ctl({"check"});
    EXPECT_EQ(after.status, 0) << after.out << after.err;
    EXPECT_EQ(after.out, "");
}

// A stopped daemon keeps its connection: only the marker round trip that
// the operator asks for shows that nothing answers.
TEST_F(PresenceTest, ProbeFindsAStoppedDaemon) {
    start_daemon(false);
    configure();
    EXPECT_EQ(ctl({"check", "--probe"}).status, 0);
    ASSERT_EQ(kill(daemon().pid(), SIGSTOP), 0);
    const tool_result r = ctl({"check", "--probe"});
    ASSERT_EQ(kill(daemon().pid(), SIGCONT), 0);
    EXPECT_EQ(r.status, 2) << r.out << r.err;
    EXPECT_EQ(kinds(r.out), std::vector<std::string>({"daemon_not_answering"})) << r.out;
    sync();
    EXPECT_EQ(ctl({"check", "--probe"}).status, 0);
}

// The daemon takes the voice VLAN from the last id key notified, so with two
// configured the applied one is database 0's, and check says there are two.
TEST_F(PresenceTest, SeveralConfiguredVoiceVlansAreReported) {
    start_daemon(false);
    set_vid(100);
    sync();
    ASSERT_NE(ctl({"show", "--json"}).out.find(R"("vid": {
      "configured": 100,
      "applied": 100
    },)"),
              std::string::npos);
    set_vid(200);
    sync();
    const tool_result r = ctl({"check"});
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_EQ(kinds(r.out), std::vector<std::string>({"several_voice_vlans"})) << r.out;
    const tool_result j = ok({"show", "--json"});
    EXPECT_NE(j.out.find(R"("configured_vids": [
      100,
      200
    ],)"),
              std::string::npos)
        << j.out;
    const tool_result t = ok({"show"});
    EXPECT_NE(t.out.find("  id           100,200 (several)"), std::string::npos) << t.out;
}

// A phone that aged leaves its port joined until the aging thread's next
// pass: normal operation, so check says so (info) and exits OK.
TEST_F(PresenceTest, AgingWindowIsOk) {
    start_daemon(false);
    configure();
    phone_joins();
    ok({"age", "100", "6", "00e0bb123456"});
    sync();
    ASSERT_TRUE(db1(join_key(5)).has_value()) << "still joined within the aging time";
    const tool_result r = ctl({"check"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(kinds(r.out), std::vector<std::string>({"joined_without_voice_address port 5"}));
    EXPECT_NE(r.out.find(": info: "), std::string::npos) << r.out;
}

// A user the server refuses CLIENT LIST cannot tell whether the daemon
// runs: a warning that says so, and the rest of the audit as before.
TEST_F(PresenceTest, ClientListRefusedIsAWarning) {
    const testsupport::server_features server = testsupport::features_of(redis());
    if (!server.acl_users()) {
        GTEST_SKIP() << "a user refused one command needs ACL users (Redis 6.0); the tool reads "
                        "any refusal of CLIENT LIST the same way";
    }
    start_daemon(false);
    configure();
    std::vector<std::string> reader = testsupport::acl_setuser_all(server, "reader", "reader-pw");
    reader.push_back("-client");
    ASSERT_EQ(redis().command(reader)->type, REDIS_REPLY_STATUS);
    const std::map<std::string, std::string> env = {{"TUKREDIS_USER", "reader"},
                                                    {"TUKREDIS_PASSWORD", "reader-pw"}};
    const tool_result r = ctl({"check"}, env);
    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_EQ(kinds(r.out), std::vector<std::string>({"daemon_presence_unknown"})) << r.out;
    const tool_result s = ok({"show"}, env);
    EXPECT_EQ(s.out.rfind("daemon: unknown (the server refused its client list: NOPERM", 0), 0u)
        << s.out;
}

} // namespace
} // namespace ctltest
