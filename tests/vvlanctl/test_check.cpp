// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl check: each kind of finding, produced by its real cause with the
// real daemon, and a healthy system found healthy.
#include <signal.h>

#include <algorithm>

#include "ctl_fixture.h"

namespace ctltest {
namespace {

using strings = std::vector<std::string>;

class CheckTest : public CtlTest {
  protected:
    // check's findings as "kind port N"; the test fails unless the status
    // is the worst severity among them (0 when only info, or none).
    strings findings() {
        const tool_result r = ctl({"check"});
        int worst = 0;
        for (const char *const level : {": warning: ", ": critical: "}) {
            if (r.out.find(level) != std::string::npos) {
                worst = std::max(worst, level[2] == 'w' ? 1 : 2);
            }
        }
        EXPECT_EQ(r.status, worst) << r.out << r.err;
        return kinds(r.out);
    }
    // Stops the daemon's process (it keeps its memory), ends its
    // subscription, and lets it go on: it reconnects and re-synchronises.
    void disconnect_while(const std::function<void()> &meanwhile) {
        const pid_t pid = daemon().pid();
        ASSERT_EQ(kill(pid, SIGSTOP), 0);
        EXPECT_GE(redis().client_kill_pubsub(), 1);
        meanwhile();
        ASSERT_EQ(kill(pid, SIGCONT), 0);
        // The re-synchronisation re-reads the marker last but sweeps after
        // it: the first copy may come from that re-read, before the sweep;
        // a second marker is only seen as a notification, after the sweep.
        sync();
        sync();
    }
};

TEST_F(CheckTest, HealthySystemFindsNothing) {
    start_daemon(false);
    configure();
    phone_joins();
    ok({"add", "oui", "0004f2000000"});
    ok({"set", "auto", "7"});
    ok({"specify", "0004f2000000", "8"});
    ok({"set", "security", "on"});
    ok({"set", "cos", "5", "46"});
    sync();
    const tool_result r = ctl({"check"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_EQ(r.out, "");
    const tool_result j = ctl({"check", "--json"});
    EXPECT_EQ(j.status, 0);
    EXPECT_NE(j.out.find("\"status\": \"OK\",\n  \"exit_code\": 0,"), std::string::npos) << j.out;
    EXPECT_NE(j.out.find("\"findings\": []\n"), std::string::npos) << j.out;
}

// A killed subscription client: the re-synchronisation sweeps the mode 2
// key of the joined port, and nothing publishes it again.
TEST_F(CheckTest, KilledSubscriptionLeavesJoinKeyMissing) {
    start_daemon(false);
    configure();
    phone_joins();
    EXPECT_GE(redis().client_kill_pubsub(), 1);
    ASSERT_TRUE(wait_db(0, port_key(5, 2), std::nullopt, integration::patience(20s)));
    sync();
    EXPECT_TRUE(db1(join_key(5)).has_value()) << "the join request stays";
    EXPECT_EQ(findings(), strings({"join_key_missing port 5"}));
    const tool_result j = ctl({"check", "--json"});
    EXPECT_EQ(j.status, 2) << "a phone left out of the voice VLAN is critical";
    EXPECT_NE(j.out.find(R"(
    {
      "kind": "join_key_missing",
      "severity": "critical",
      "ifx": 5,
      "detail": "join request /bri/mac/macTblDyn_vvlan/5 in database 1 but no /bridge/vvlan/port_oper/5/2 in database 0",
      "advice": "vvlanctl unset auto 5; vvlanctl set auto 5; then let the phone be learned again"
    })"),
              std::string::npos)
        << j.out;
}

// The phone aged, then its OUI was deleted: the port's count wraps and the
// port stays joined with nothing to show for it.
TEST_F(CheckTest, OuiDeletedAfterThePhoneAgedLeavesJoinedWithoutVoiceAddress) {
    start_daemon(false);
    configure();
    phone_joins();
    ok({"age", "100", "6", "00e0bb123456"});
    ok({"del", "oui", "00e0bb000000"});
    sync();
    EXPECT_TRUE(db0(port_key(5, 2)).has_value());
    EXPECT_EQ(findings(), strings({"joined_without_voice_address port 5"}));
}

// A phone learned while the daemon was stopped: the re-synchronisation
// does not re-read MAC-learning keys.
TEST_F(CheckTest, LearningWhileTheDaemonWasStoppedLeavesVoiceAddressNotJoined) {
    start_daemon(false);
    configure();
    ASSERT_NE(daemon().terminate(integration::patience(10s)), -1);
    ok({"learn", "100", "6", "00e0bb123456"});
    start_daemon(false);
    sync();
    EXPECT_FALSE(db1(join_key(5)).has_value());
    EXPECT_EQ(findings(), strings({"voice_address_not_joined port 5"}));
}

// A joined port taken out of automatic mode: its mode 2 key goes, its join
// request deliberately stays.
TEST_F(CheckTest, JoinedPortTakenOutOfAutomaticModeIsJoinedNotAuto) {
    start_daemon(false);
    configure();
    phone_joins();
    ok({"unset", "auto", "5"});
    sync();
    EXPECT_FALSE(db0(port_key(5, 2)).has_value());
    EXPECT_EQ(findings(), strings({"join_key_missing port 5", "joined_not_auto port 5"}));
}

// The security mode deleted while the daemon was disconnected: the scan
// re-reads only the keys that exist, so the daemon keeps it on and
// publishes it again.
TEST_F(CheckTest, SecurityDeletedWhileDisconnectedIsAppliedWithoutConfiguration) {
    start_daemon(false);
    configure();
    ok({"set", "security", "on"});
    sync();
    ASSERT_EQ(db0("/bridge/vvlan/secu_mode/"), "1");
    disconnect_while([&] { ok({"set", "security", "off"}); });
    EXPECT_EQ(db0("/bridge/vvlan/secu_mode/"), "1") << "published again";
    EXPECT_EQ(findings(), strings({"applied_without_configuration"}));
    const tool_result r = ctl({"check"});
    EXPECT_NE(r.out.find("/bridge/vvlan/secu_mode/ published in database 0, but database 1 "
                         "configures the security mode off"),
              std::string::npos)
        << r.out;
}

// A port taken out of automatic mode while the daemon was disconnected:
// its mode 1 echo is swept, but the daemon still counts it automatic, so a
// phone learned later still joins it.
TEST_F(CheckTest, AutoModeDeletedWhileDisconnectedStillJoins) {
    start_daemon(false);
    configure();
    disconnect_while([&] { ok({"unset", "auto", "5"}); });
    EXPECT_FALSE(db0(port_key(5, 1)).has_value()) << "the echo is swept";
    ok({"learn", "100", "6", "00e0bb123456"});
    sync();
    EXPECT_TRUE(db1(join_key(5)).has_value()) << "the daemon still joins the port";
    EXPECT_EQ(findings(), strings({"joined_not_auto port 5"}));
}

// The 125th OUI: a full table refuses it, so its configuration has no copy.
TEST_F(CheckTest, OuiRefusedByAFullTableIsPublishedDiffers) {
    start_daemon(false);
    configure();
    for (int i = 1; i < 124; ++i) {
        add_oui({0x00, 0x10, static_cast<uint8_t>(i), 0, 0, 0});
    }
    sync();
    ASSERT_EQ(redis().keys(0, "/bridge/vvlan/oui_oper/*").size(), 124u);
    EXPECT_EQ(findings(), strings());
    ok({"add", "oui", "00:20:00:00:00:00"});
    sync();
    EXPECT_EQ(findings(), strings({"published_differs"}));
    const tool_result r = ctl({"check"});
    EXPECT_NE(r.out.find("/bridge/vvlan/oui_oper/002000000000/ffffff000000 configured, but no "
                         "echo of it in database 0"),
              std::string::npos)
        << r.out;
}

} // namespace
} // namespace ctltest
