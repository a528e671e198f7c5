// SPDX-License-Identifier: BSD-3-Clause
// Live delivery of keyspace notifications to the registered handlers.
#include <cstring>

#include "tukredis_fixture.h"

namespace platformtest {
namespace {

TEST_F(TukredisTest, InitRefusesAMissingOrBrokenTable) {
    tukredis_sub_row row = recording_row(0, "*");
    EXPECT_EQ(tukredis_init(nullptr, 1, record_resync, 0), -1);
    EXPECT_EQ(tukredis_init(&row, 0, record_resync, 0), -1);
    EXPECT_EQ(tukredis_init(&row, -1, record_resync, 0), -1);
    tukredis_sub_row no_handler = row;
    no_handler.handler = nullptr;
    EXPECT_EQ(tukredis_init(&no_handler, 1, record_resync, 0), -1);
    tukredis_sub_row unterminated = row;
    std::memset(unterminated.pattern, 'a', sizeof unterminated.pattern);
    EXPECT_EQ(tukredis_init(&unterminated, 1, record_resync, 0), -1);
    EXPECT_EQ(tukredis_init(&row, 1, nullptr, 0), 0);
}

TEST_F(TukredisTest, DeliversEventsOfBothDatabasesInServerOrder) {
    register_rows({recording_row(0, "*"), recording_row(1, "*")});
    connect_and_subscribe();
    start_pubsub();

    auto &c = *client_;
    c.set(0, "a", "1");
    c.set(1, "b", "2");
    c.del(0, "a");
    c.set(0, "/bri/mac/0001", "port 3");
    c.command(0, {"RENAME", "/bri/mac/0001", "/bri/mac/0002"});
    c.set(1, "c", "3");
    c.command(1, {"RENAME", "c", "d"});
    // Neither is delivered.
    c.command(0, {"APPEND", "e", "x"});
    c.command(1, {"INCRBY", "n", "5"});
    c.pexpire(1, "b", 50);

    const std::vector<bus_event> expected = {
        {0, "a", TUKREDIS_CMD_SET},
        {1, "b", TUKREDIS_CMD_SET},
        {0, "a", TUKREDIS_CMD_DEL},
        {0, "/bri/mac/0001", TUKREDIS_CMD_NEW_ADDR},
        {0, "/bri/mac/0001", TUKREDIS_CMD_DEL},
        {0, "/bri/mac/0002", TUKREDIS_CMD_NEW_ADDR},
        {1, "c", TUKREDIS_CMD_SET},
        {1, "c", TUKREDIS_CMD_DEL},
        {1, "d", TUKREDIS_CMD_SET},
        {1, "b", TUKREDIS_CMD_EXPIRE},
        {1, "b", TUKREDIS_CMD_EXPIRED},
    };
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= expected.size());
    EXPECT_EQ(recorder::get().events(), expected);
    // Counted once the handler has returned.
    EXPECT_EVENTUALLY(5s, stats().delivered == expected.size());
}

TEST_F(TukredisTest, RowsSeeOnlyTheirDatabaseAndPattern) {
    register_rows({recording_row(0, "/vvlan/*"), recording_row(1, "/cfg/?")});
    connect_and_subscribe();
    start_pubsub();

    auto &c = *client_;
    c.set(1, "/vvlan/x", "other database");
    c.set(0, "/cfg/a", "other database");
    c.set(1, "/cfg/ab", "pattern does not match");
    c.set(0, "/other", "pattern does not match");
    c.set(0, "/vvlan/x", "v");
    c.set(1, "/cfg/a", "v");

    const std::vector<bus_event> expected = {{0, "/vvlan/x", TUKREDIS_CMD_SET},
                                             {1, "/cfg/a", TUKREDIS_CMD_SET}};
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= expected.size());
    EXPECT_EQ(recorder::get().events(), expected);
}

TEST_F(TukredisTest, KeysThatDoNotFitAreNotDelivered) {
    register_rows({recording_row(0, "*")});
    connect_and_subscribe();
    start_pubsub();

    const std::string longest(TUKREDIS_KEY_LEN - 1, 'k');
    const std::string too_long(TUKREDIS_KEY_LEN, 'k');
    const std::string with_nul("ab\0cd", 5);
    auto &c = *client_;
    c.set(0, too_long, "1");
    c.set(0, with_nul, "2");
    c.set(0, longest, "3");
    c.set(0, "marker", "4");

    const std::vector<bus_event> expected = {{0, longest, TUKREDIS_CMD_SET},
                                             {0, "marker", TUKREDIS_CMD_SET}};
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= expected.size());
    EXPECT_EQ(recorder::get().events(), expected);
    EXPECT_EQ(stats().dropped, 2U);
}

TEST_F(TukredisTest, RowsWithTheSamePatternAllGetTheNotification) {
    register_rows({recording_row(0, "/x/*"), recording_row(0, "/x/*")});
    connect_and_subscribe();
    start_pubsub();

    client_->set(0, "/x/1", "v");
    ASSERT_EVENTUALLY(5s, recorder::get().count() >= 2);
    const std::vector<bus_event> expected = {{0, "/x/1", TUKREDIS_CMD_SET},
                                             {0, "/x/1", TUKREDIS_CMD_SET}};
    EXPECT_EQ(recorder::get().events(), expected);
}

} // namespace
} // namespace platformtest
