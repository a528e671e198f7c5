// SPDX-License-Identifier: BSD-3-Clause
// The daemon recognised in CLIENT LIST text: by the name the host bus
// library gives, or by its pattern count where a vendor's library gives no
// name; never another subscriber.
#include <gtest/gtest.h>

#include "presence.h"

namespace {

constexpr int64_t NOW = 1795000000;

std::string client(const std::string &name, int psub, int age) {
    return "id=7 addr=/run/redis.sock:0 laddr=/run/redis.sock:0 fd=9 name=" + name +
           " age=" + std::to_string(age) +
           " idle=0 flags=P db=0 sub=0 psub=" + std::to_string(psub) +
           " ssub=0 multi=-1 cmd=psubscribe user=default\n";
}

TEST(PresenceList, PatternCountIsDeclaredOnce) {
    EXPECT_EQ(DAEMON_PATTERNS, 11);
}

TEST(PresenceList, NamedSubscriberIsTheDaemon) {
    const daemon_presence p =
        presence_of_client_list(client("", 0, 1) + client("tukredis", 11, 60), NOW);
    EXPECT_EQ(p.state, daemon_state::subscribed);
    EXPECT_EQ(p.since_unix, NOW - 60);
    EXPECT_EQ(p.name, "tukredis");
    EXPECT_EQ(iso_utc(*p.since_unix), "2026-11-18T11:05:40Z");
}

TEST(PresenceList, UnnamedSubscriberWithTheDaemonsCountIsTheDaemon) {
    const daemon_presence p = presence_of_client_list(client("", 11, 5), NOW);
    EXPECT_EQ(p.state, daemon_state::subscribed);
    EXPECT_FALSE(p.name.has_value());
}

TEST(PresenceList, OtherSubscribersAreNot) {
    EXPECT_EQ(presence_of_client_list(client("vvlanctl", 11, 5) + client("", 3, 5), NOW).state,
              daemon_state::absent);
    EXPECT_EQ(presence_of_client_list("", NOW).state, daemon_state::absent);
}

TEST(PresenceList, BusConnectionWithoutTheSubscriptionIsConnected) {
    const daemon_presence p = presence_of_client_list(client("tukredis", 0, 5), NOW);
    EXPECT_EQ(p.state, daemon_state::connected);
    EXPECT_FALSE(p.since_unix.has_value());
}

} // namespace
