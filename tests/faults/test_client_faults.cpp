// SPDX-License-Identifier: BSD-3-Clause
// The server stays up but drops the daemon's connections: its subscription
// and command clients killed again and again, the configuration changed
// and phones learned while it is cut off, its subscription dropped for a
// pub/sub output-buffer overflow.
#include <hiredis/hiredis.h>
#include <signal.h>

#include <iostream>

#include "fault_fixture.h"
#include "server_admin.h"

namespace faults {
namespace {

constexpr int ROUNDS = 10;
constexpr auto STORM = 2s;

class ClientFaultTest : public FaultTest {
  protected:
    // One more subscription lost, and the re-synchronisation that follows
    // finished undisturbed.
    void one_clean_resync() {
        barrier();
        const int before = resyncs();
        ASSERT_EQ(kill_subscription_clients(redis()), 1);
        ASSERT_NO_FATAL_FAILURE(wait_resync_after(before, integration::patience(15s)));
    }

    long long info_stat(const std::string &name) {
        const std::string text = redis().info("stats");
        const std::size_t at = text.find(name + ":");
        return at == std::string::npos ? -1 : std::stoll(text.substr(at + name.size() + 1));
    }
};

TEST_F(ClientFaultTest, SubscriptionAndCommandClientsKilledRepeatedly) {
    start();
    ASSERT_NO_FATAL_FAILURE(configure_switch());

    // Each kill once the daemon is back from the previous one...
    int subscription_kills = 0;
    int command_kills = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        const int before = resyncs();
        ASSERT_EQ(kill_subscription_clients(redis()), 1) << "round " << round;
        ++subscription_kills;
        ASSERT_NO_FATAL_FAILURE(wait_resync_after(before, integration::patience(15s)));
        const int killed = kill_command_clients(redis());
        EXPECT_EQ(killed, 1) << "round " << round;
        command_kills += killed;
    }
    // ... then as fast as the server takes them, connections being made
    // included: the daemon cannot even finish connecting meanwhile.
    const auto until = std::chrono::steady_clock::now() + STORM;
    while (std::chrono::steady_clock::now() < until) {
        subscription_kills += kill_subscription_clients(redis());
        command_kills += kill_command_clients(redis());
        ASSERT_TRUE(daemon().running()) << daemon().stderr_text();
    }
    std::cout << "killed: " << subscription_kills << " subscription clients, " << command_kills
              << " command clients; " << resyncs() << " re-synchronisations\n";
    ASSERT_NO_FATAL_FAILURE(one_clean_resync());

    ASSERT_NO_FATAL_FAILURE(expect_alive_and_settled());
    prescribed_losses losses;
    for (int32_t ifx : PHONE_PORTS) {
        losses.mode2_key_swept(ifx);
    }
    expect_only(losses);
}

// The daemon is held (SIGSTOP) while its connections are killed, so that
// what follows happens while it is cut off: exactly as a slow reconnection
// on a busy switch would let it happen.
TEST_F(ClientFaultTest, ConfigurationChangedAndPhonesLearnedWhileCutOff) {
    start();
    ASSERT_NO_FATAL_FAILURE(configure_switch());
    const int before = resyncs();

    ASSERT_EQ(kill(daemon().pid(), SIGSTOP), 0);
    EXPECT_EQ(kill_subscription_clients(redis()), 1);
    EXPECT_EQ(kill_command_clients(redis()), 1);
    unset_security();
    del_oui(OUI_LAST);
    unset_auto(6); // joined
    unset_auto(8); // not joined
    learn(VOICE_VLAN, 10, phone_of(10));
    ASSERT_EQ(kill(daemon().pid(), SIGCONT), 0);
    ASSERT_NO_FATAL_FAILURE(wait_resync_after(before, integration::patience(15s)));

    // What the daemon still holds in memory goes on acting.
    learn(VOICE_VLAN, 12, device(OUI_LAST.oui, 0x77));
    learn(VOICE_VLAN, 8, phone_of(8));

    ASSERT_NO_FATAL_FAILURE(expect_alive_and_settled());
    prescribed_losses losses;
    losses.mode2_key_swept(2);
    losses.mode2_key_swept(4);
    losses.unset_auto_still_joined(6);
    losses.unset_auto_still_joins(8);
    losses.learning_lost(10);
    losses.deleted_oui_still_joins(12);
    losses.deleted_security_still_published();
    expect_only(losses);
}

TEST_F(ClientFaultTest, PubsubOutputBufferOverflow) {
    start();
    ASSERT_NO_FATAL_FAILURE(configure_switch());
    const int before = resyncs();
    const long long overflows = info_stat("client_output_buffer_limit_disconnections");

    redis().config_set("client-output-buffer-limit", "pubsub 32kb 16kb 60");
    // A burst of learnings in one pipeline: the server queues notifications
    // far faster than the daemon takes them.
    constexpr int BURST = 20000;
    std::vector<std::string> keys;
    redisContext *c = redisConnectUnix(server().socket_path().c_str());
    ASSERT_TRUE(c != nullptr && c->err == 0);
    redisAppendCommand(c, "SELECT %d", DB_STATE);
    for (int n = 0; n < BURST; ++n) {
        const int32_t ifx = PHONE_PORTS[static_cast<std::size_t>(n) % PHONE_PORTS.size()];
        keys.push_back(
            key_text(mac_learning_key(VOICE_VLAN, phyid_of(ifx), device(OUI_A.oui, 0x300000 + n))));
        redisAppendCommand(c, "SET %b %b", keys.back().data(), keys.back().size(), "", 0UL);
    }
    for (int n = 0; n <= BURST; ++n) {
        void *reply = nullptr;
        ASSERT_EQ(redisGetReply(c, &reply), REDIS_OK);
        freeReplyObject(reply);
    }
    redisFree(c);
    record_learnings(keys);

    ASSERT_NO_FATAL_FAILURE(wait_resync_after(before, integration::patience(15s)));
    if (overflows >= 0) {
        EXPECT_GT(info_stat("client_output_buffer_limit_disconnections"), overflows);
    }
    std::cout << "burst of " << BURST << " learnings; subscription dropped for its output buffer\n";

    ASSERT_NO_FATAL_FAILURE(expect_alive_and_settled());
    prescribed_losses losses;
    for (int32_t ifx : PHONE_PORTS) {
        losses.mode2_key_swept(ifx);
    }
    expect_only(losses);
}

} // namespace
} // namespace faults
