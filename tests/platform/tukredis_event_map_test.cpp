// SPDX-License-Identifier: BSD-3-Clause
// The event table, without a server: which keyspace events reach the daemon
// and with which code.
#include <gtest/gtest.h>

#include "tukredis.h"
#include "tukredis_host.h"

namespace {

constexpr int32_t NOT_DELIVERED = -1;

TEST(TukredisEventMap, SetIsSetOutsideTheMacTable) {
    EXPECT_EQ(tukredis_host_event_code("set", "/vvlan/cfg/vid"), TUKREDIS_CMD_SET);
    EXPECT_EQ(tukredis_host_event_code("set", "plain"), TUKREDIS_CMD_SET);
}

TEST(TukredisEventMap, SetUnderTheMacTableIsANewAddress) {
    EXPECT_EQ(tukredis_host_event_code("set", "/bri/mac/00:11:22:33:44:55"), TUKREDIS_CMD_NEW_ADDR);
    EXPECT_EQ(tukredis_host_event_code("set", "/bri/mac/"), TUKREDIS_CMD_NEW_ADDR);
}

TEST(TukredisEventMap, OnlyTheExactMacPrefixCounts) {
    EXPECT_EQ(tukredis_host_event_code("set", "/bri/mac"), TUKREDIS_CMD_SET);
    EXPECT_EQ(tukredis_host_event_code("set", "/bri/macs/x"), TUKREDIS_CMD_SET);
    EXPECT_EQ(tukredis_host_event_code("set", "x/bri/mac/y"), TUKREDIS_CMD_SET);
}

TEST(TukredisEventMap, RenameToIsLikeSet) {
    EXPECT_EQ(tukredis_host_event_code("rename_to", "/vvlan/a"), TUKREDIS_CMD_SET);
    EXPECT_EQ(tukredis_host_event_code("rename_to", "/bri/mac/1"), TUKREDIS_CMD_NEW_ADDR);
}

TEST(TukredisEventMap, EveryWayOfLosingAKeyIsDel) {
    EXPECT_EQ(tukredis_host_event_code("del", "/bri/mac/1"), TUKREDIS_CMD_DEL);
    EXPECT_EQ(tukredis_host_event_code("rename_from", "/bri/mac/1"), TUKREDIS_CMD_DEL);
    EXPECT_EQ(tukredis_host_event_code("evicted", "k"), TUKREDIS_CMD_DEL);
}

TEST(TukredisEventMap, ExpireAndExpiredHaveTheirOwnCodes) {
    EXPECT_EQ(tukredis_host_event_code("expire", "/bri/mac/1"), TUKREDIS_CMD_EXPIRE);
    EXPECT_EQ(tukredis_host_event_code("expired", "/bri/mac/1"), TUKREDIS_CMD_EXPIRED);
}

TEST(TukredisEventMap, OtherEventsAreNotDelivered) {
    for (const char *event : {"incrby", "append", "setrange", "hset", "lpush", "persist", "new",
                              "SET", "", "sets", "expired "}) {
        EXPECT_EQ(tukredis_host_event_code(event, "k"), NOT_DELIVERED) << event;
    }
}

TEST(TukredisEventMap, NullArgumentsAreNotDelivered) {
    EXPECT_EQ(tukredis_host_event_code(nullptr, "k"), NOT_DELIVERED);
    EXPECT_EQ(tukredis_host_event_code("set", nullptr), NOT_DELIVERED);
}

} // namespace
