// SPDX-License-Identifier: BSD-3-Clause
// Connection life: subscription, loss, reconnection with back-off, dead-peer
// detection and the server's notification flags.
#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "testsupport/free_port.h"
#include "tukredis_fixture.h"

namespace platformtest {
namespace {

using steady_clock = std::chrono::steady_clock;

bool has_all_flags(const std::string &flags, const std::string &wanted) {
    for (const char flag : wanted) {
        if (flags.find(flag) == std::string::npos) {
            return false;
        }
    }
    return true;
}

TEST_F(TukredisTest, ResyncIsCalledWithZeroFirstThenOneAfterEveryReconnection) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    EXPECT_EQ(recorder::get().resync_codes(), std::vector<unsigned>{0});
    start_pubsub();

    EXPECT_GE(client_->client_kill_pubsub(), 1);
    ASSERT_EVENTUALLY(5s, pubsub_finished());
    EXPECT_EQ(pubsub_result(), -1);

    connect_and_subscribe();
    EXPECT_EQ(recorder::get().resync_codes(), (std::vector<unsigned>{0, 1}));
    start_pubsub();
    client_->set(0, "after", "v");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    EXPECT_EQ(recorder::get().events().front(), (bus_event{0, "after", TUKREDIS_CMD_SET}));
    EXPECT_EQ(stats().reconnections, 1U);
}

TEST_F(TukredisTest, EventsCausedByTheResyncAreDeliveredAfterIt) {
    // Like the daemon's re-synchronisation, the callback writes on the
    // command connection while the subscription is already in place.
    const tukredis_resync_cb rewrite = [](unsigned int code) -> int32_t {
        record_resync(code);
        return tukredis_db_command(0, 1, -1, 0, "SET /resync/%u 1", code);
    };
    register_rows({recording_row(0, "/resync/*")}, rewrite);
    connect_and_subscribe();
    start_pubsub();
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    EXPECT_EQ(recorder::get().events(),
              (std::vector<bus_event>{{0, "/resync/0", TUKREDIS_CMD_SET}}));
}

TEST_F(TukredisTest, SubscriptionFailsWhenTheServerDoesNotConfirm) {
    register_rows({recording_row(0, "*")});
    ASSERT_EQ(tukredis_db_connect(), 0);
    server_.pause();
    const auto started = steady_clock::now();
    EXPECT_EQ(tukredis_db_psubscrible(), -1);
    EXPECT_LT(steady_clock::now() - started, 5s);
    EXPECT_TRUE(recorder::get().resync_codes().empty());
    // The connection is marked dead: no wait at all.
    EXPECT_EQ(tukredis_pubsub(), -1);
    server_.resume();
}

TEST_F(TukredisTest, PubsubReturnsWhenTheServerStops) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    start_pubsub();
    server_.stop();
    ASSERT_EVENTUALLY(5s, pubsub_finished());
    EXPECT_EQ(pubsub_result(), -1);
}

TEST_F(TukredisTest, PubsubReturnsAtOnceWithoutASubscription) {
    EXPECT_EQ(tukredis_pubsub(), -1);
    register_rows({recording_row(0, "*")});
    EXPECT_EQ(tukredis_db_psubscrible(), -1);
    EXPECT_EQ(tukredis_pubsub(), -1);
}

TEST_F(TukredisTest, PubsubNoticesAServerThatStopsAnswering) {
    setenv("TUKREDIS_PING_INTERVAL_MS", "200", 1);
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    start_pubsub();
    const auto paused_at = steady_clock::now();
    server_.pause();
    ASSERT_EVENTUALLY(5s, pubsub_finished());
    // The last answer came at most an interval before the pause; then a
    // quiet interval, and an unanswered ping for another.
    EXPECT_GE(steady_clock::now() - paused_at, 150ms);
    server_.resume();
}

TEST_F(TukredisTest, PingsKeepAQuietSessionAlive) {
    setenv("TUKREDIS_PING_INTERVAL_MS", "100", 1);
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    start_pubsub();
    // Many ping intervals without a notification.
    EXPECT_FALSE(testsupport::eventually([this] { return pubsub_finished(); }, 600ms));
    client_->set(0, "still-there", "v");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    EXPECT_FALSE(pubsub_finished());
}

TEST_F(TukredisTest, ConnectRetriesWithBackoffUntilTheServerIsBack) {
    register_rows({recording_row(0, "*")});
    server_.stop();
    std::atomic<int32_t> result{-99};
    const auto started = steady_clock::now();
    background connecting([&] { result = tukredis_db_connect(); },
                          [this] {
                              if (!server_.running()) {
                                  server_.start();
                              }
                          });
    // Pauses of 50, 100, 200 and 400 ms come before the fifth attempt; a
    // busy loop would get there at once.
    ASSERT_EVENTUALLY(10s, stats().connect_attempts >= 5);
    const auto elapsed = steady_clock::now() - started;
    EXPECT_GE(elapsed, 650ms);
    EXPECT_FALSE(connecting.finished());

    server_.start();
    ASSERT_EVENTUALLY(5s, connecting.finished());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(tukredis_db_psubscrible(), 0);
    const auto attempts = stats().connect_attempts;
    const auto window =
        std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - started);
    EXPECT_LE(attempts, 2 + static_cast<uint64_t>(window.count() / 50));
}

TEST_F(TukredisTest, BackoffHoldsAcrossCallsWhenSessionsEndAtOnce) {
    // The server accepts the connection but refuses the subscription, so
    // every session of the daemon's loop ends as soon as it starts. A
    // command renamed away is refused by every server version; ACL rules
    // came only with 6.0.
    server_.set_extra_args({"--rename-command", "PSUBSCRIBE", ""});
    server_.restart();
    register_rows({recording_row(0, "*")});
    std::atomic<bool> stop{false};
    std::atomic<int> sessions{0};
    const auto started = steady_clock::now();
    background loop(
        [&] {
            while (!stop) {
                tukredis_db_connect();
                tukredis_db_psubscrible();
                tukredis_pubsub();
                ++sessions;
            }
        },
        [&] { stop = true; });
    // The second to fifth connects wait 50, 100, 200 and 400 ms.
    ASSERT_EVENTUALLY(10s, sessions >= 5);
    EXPECT_GE(steady_clock::now() - started, 650ms);
    stop = true;
    loop.join();
    EXPECT_TRUE(recorder::get().resync_codes().empty());
}

TEST_F(TukredisTest, NotificationFlagsAreAddedToWhatTheServerHas) {
    client_->config_set("notify-keyspace-events", "Kl");
    ASSERT_EQ(tukredis_db_connect(), 0);
    const std::string flags = client_->config_get("notify-keyspace-events");
    EXPECT_TRUE(has_all_flags(flags, "Klg$xe")) << flags;
}

TEST_F(TukredisTest, NotificationFlagsAreSetOnAServerWithout) {
    client_->config_set("notify-keyspace-events", "");
    ASSERT_EQ(tukredis_db_connect(), 0);
    const std::string flags = client_->config_get("notify-keyspace-events");
    EXPECT_TRUE(has_all_flags(flags, "Kg$xe")) << flags;
}

TEST_F(TukredisTest, NotificationFlagsKeepTheAllAlias) {
    client_->config_set("notify-keyspace-events", "AE");
    ASSERT_EQ(tukredis_db_connect(), 0);
    const std::string flags = client_->config_get("notify-keyspace-events");
    EXPECT_TRUE(has_all_flags(flags, "AEK")) << flags;
}

TEST_F(TukredisTest, ConnectGoesOnWhenConfigIsRefused) {
    // Without CONFIG, as for a user the ACL gives none (renaming refuses it
    // on servers before ACLs too).
    server_.set_extra_args({"--notify-keyspace-events", "KA", "--rename-command", "CONFIG", ""});
    server_.restart();
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    start_pubsub();
    client_->set(0, "k", "v");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
}

TEST_F(TukredisTest, InitIgnoresSigpipe) {
    tukredis_sub_row row = recording_row(0, "*");
    ASSERT_EQ(tukredis_init(&row, 1, record_resync, 0), 0);
    struct sigaction current {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &current), 0);
    EXPECT_EQ(current.sa_handler, SIG_IGN);
}

TEST_F(TukredisTest, TheSocketWinsOverHostAndPort) {
    setenv("TUKREDIS_HOST", "127.0.0.1", 1);
    setenv("TUKREDIS_PORT", "1", 1);
    ASSERT_EQ(tukredis_db_connect(), 0);
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/socket 1"), 0);
    EXPECT_TRUE(client_->exists(0, "/w/socket"));
}

TEST_F(TukredisTest, ConnectsOverTcpWithoutASocket) {
    const int port = testsupport::free_loopback_port();
    ASSERT_NE(port, 0);
    server_.set_extra_args({"--port", std::to_string(port), "--bind", "127.0.0.1"});
    server_.restart();
    unsetenv("TUKREDIS_SOCKET");
    setenv("TUKREDIS_HOST", "127.0.0.1", 1);
    setenv("TUKREDIS_PORT", std::to_string(port).c_str(), 1);

    register_rows({recording_row(1, "/tcp/*")});
    connect_and_subscribe();
    start_pubsub();
    EXPECT_EQ(tukredis_db_command(1, 1, -1, 0, "SET /tcp/a 1"), 0);
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 1);
    EXPECT_EQ(recorder::get().events(), (std::vector<bus_event>{{1, "/tcp/a", TUKREDIS_CMD_SET}}));
}

} // namespace
} // namespace platformtest
