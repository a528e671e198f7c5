// SPDX-License-Identifier: BSD-3-Clause
// Each finding's advice clears it: the finding is caused as in the field,
// the advice check prints is run as it stands (its vvlanctl commands, in
// order), and check no longer reports that kind.
#include <signal.h>

#include <csignal>

#include "ctl_fixture.h"

namespace ctltest {
namespace {

class AdviceTest : public CtlTest {
  protected:
    // The advice check gives for the first finding of kind.
    std::string advice_of(const std::string &kind) {
        const tool_result r = ctl({"check"});
        const std::size_t at = r.out.find(kind);
        EXPECT_NE(at, std::string::npos) << kind << " not found in\n" << r.out;
        if (at == std::string::npos) {
            return "";
        }
        const std::string marker = "\n  advice: ";
        const std::size_t a = r.out.find(marker, at);
        return r.out.substr(a + marker.size(), r.out.find('\n', a + 1) - a - marker.size());
    }
    // Runs every "vvlanctl ..." step of the advice; the rest is prose.
    void follow(const std::string &advice) {
        std::size_t start = 0;
        while (start < advice.size()) {
            std::size_t end = advice.find("; ", start);
            if (end == std::string::npos) {
                end = advice.size();
            }
            std::string step = advice.substr(start, end - start);
            start = end + 2;
            if (step.rfind("vvlanctl ", 0) != 0) {
                continue;
            }
            std::vector<std::string> args;
            std::size_t w = std::string("vvlanctl ").size();
            while (w < step.size()) {
                std::size_t e = step.find(' ', w);
                if (e == std::string::npos) {
                    e = step.size();
                }
                args.push_back(step.substr(w, e - w));
                w = e + 1;
            }
            ok(args);
        }
        sync();
    }
    bool reported(const std::string &kind) {
        return ctl({"check"}).out.find(kind + " ") != std::string::npos ||
               ctl({"check"}).out.find(kind + ":") != std::string::npos;
    }
    void disconnect_while(const std::function<void()> &meanwhile) {
        const pid_t pid = daemon().pid();
        ASSERT_EQ(kill(pid, SIGSTOP), 0);
        EXPECT_GE(redis().client_kill_pubsub(), 1);
        meanwhile();
        ASSERT_EQ(kill(pid, SIGCONT), 0);
        sync();
        sync();
    }
};

TEST_F(AdviceTest, VoiceAddressNotJoined) {
    start_daemon(false);
    configure();
    ASSERT_NE(daemon().terminate(integration::patience(10s)), -1);
    ok({"learn", "100", "6", "00e0bb123456"});
    start_daemon(false);
    sync();
    const std::string advice = advice_of("voice_address_not_joined");
    EXPECT_EQ(advice, "vvlanctl age 100 6 00:e0:bb:12:34:56; vvlanctl unset auto 5; vvlanctl set "
                      "auto 5; vvlanctl learn 100 6 00:e0:bb:12:34:56");
    follow(advice);
    EXPECT_FALSE(reported("voice_address_not_joined")) << ctl({"check"}).out;
    EXPECT_TRUE(db1(join_key(5)).has_value());
}

// A server restart loses every key while the daemon keeps the port joined
// in its memory: the phone learned again is counted, not joined.
TEST_F(AdviceTest, VoiceAddressNotJoinedAfterAServerRestart) {
    start_daemon(false);
    configure();
    phone_joins();
    // The fixture's own client fails once on the old connection, then
    // reopens.
    std::signal(SIGPIPE, SIG_IGN);
    server().restart();
    try {
        redis().get(0, "/bridge/vvlan/data/end");
    } catch (const std::exception &) {
    }
    configure();
    ok({"learn", "100", "6", "00e0bb123456"});
    sync();
    const std::string advice = advice_of("voice_address_not_joined");
    follow(advice);
    EXPECT_FALSE(reported("voice_address_not_joined")) << ctl({"check"}).out;
    EXPECT_TRUE(db1(join_key(5)).has_value());
}

TEST_F(AdviceTest, JoinKeyWithoutJoin) {
    start_daemon(false);
    configure();
    phone_joins();
    ok({"age", "100", "6", "00e0bb123456"});
    sync();
    // The MAC layer dropped the join request; the daemon does not follow it.
    redis().del(1, join_key(5));
    const std::string advice = advice_of("join_key_without_join");
    EXPECT_EQ(advice, "vvlanctl unset auto 5; vvlanctl set auto 5");
    follow(advice);
    EXPECT_FALSE(reported("join_key_without_join")) << ctl({"check"}).out;
}

TEST_F(AdviceTest, AppliedWithoutConfiguration) {
    start_daemon(false);
    configure();
    ok({"set", "security", "on"});
    sync();
    disconnect_while([&] { ok({"set", "security", "off"}); });
    const std::string advice = advice_of("applied_without_configuration");
    EXPECT_EQ(advice, "vvlanctl set security on; vvlanctl set security off");
    follow(advice);
    EXPECT_FALSE(reported("applied_without_configuration")) << ctl({"check"}).out;
    EXPECT_FALSE(db0("/bridge/vvlan/secu_mode/").has_value());
}

// A MAC-VLAN entry deleted while the daemon was down: the restarted daemon
// never knew it, so nothing withdraws its OUI message.
TEST_F(AdviceTest, OuiMessageWithoutEntry) {
    start_daemon(false);
    configure();
    ok({"add", "mvlan", "0", "00e0bb010203", "ffffff000000", "100"});
    sync();
    ASSERT_TRUE(db0(oui_msg_key(0)).has_value());
    ASSERT_NE(daemon().terminate(integration::patience(10s)), -1);
    ok({"del", "mvlan", "0"});
    start_daemon(false);
    sync();
    ASSERT_TRUE(db0(oui_msg_key(0)).has_value());
    const std::string advice = advice_of("oui_message_without_entry");
    EXPECT_EQ(advice, "vvlanctl add mvlan 0 00e0bb000000 ffffff000000 100; vvlanctl del mvlan 0");
    follow(advice);
    EXPECT_FALSE(reported("oui_message_without_entry")) << ctl({"check"}).out;
    EXPECT_FALSE(db0(oui_msg_key(0)).has_value());
}

TEST_F(AdviceTest, JoinedNotAuto) {
    start_daemon(false);
    configure();
    phone_joins();
    ok({"unset", "auto", "5"});
    sync();
    const std::string advice = advice_of("joined_not_auto");
    follow(advice);
    EXPECT_FALSE(reported("joined_not_auto")) << ctl({"check"}).out;
}

// A specified-OUI message joins a port that is not automatic; withdrawing
// it would leave the join request behind, making the port automatic does not.
TEST_F(AdviceTest, JoinedNotAutoBySpecifiedOui) {
    start_daemon(false);
    configure();
    ok({"specify", "00e0bb000000", "8"});
    sync();
    ASSERT_TRUE(db1(join_key(7)).has_value());
    const std::string advice = advice_of("joined_not_auto port 7");
    EXPECT_EQ(advice, "vvlanctl set auto 7; then leave it so until the port's addresses have aged");
    follow(advice);
    const tool_result r = ctl({"check"});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_EQ(r.out, "");
}

TEST_F(AdviceTest, JoinKeyMissing) {
    start_daemon(false);
    configure();
    phone_joins();
    EXPECT_GE(redis().client_kill_pubsub(), 1);
    ASSERT_TRUE(wait_db(0, port_key(5, 2), std::nullopt, integration::patience(20s)));
    sync();
    const std::string advice = advice_of("join_key_missing");
    follow(advice);
    // "then let the phone be learned again"
    ok({"age", "100", "6", "00e0bb123456"});
    ok({"learn", "100", "6", "00e0bb123456"});
    sync();
    EXPECT_FALSE(reported("join_key_missing")) << ctl({"check"}).out;
}

} // namespace
} // namespace ctltest
