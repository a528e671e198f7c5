// SPDX-License-Identifier: BSD-3-Clause
// The pattern operations: scan, pexpire and del_expire.
#include <set>

#include "tukredis_fixture.h"

namespace platformtest {
namespace {

TEST_F(TukredisTest, ScanVisitsEveryMatchingKeyOnceInItsDatabase) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    auto &c = *client_;
    std::set<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        const std::string key = "/t/k" + std::to_string(i);
        c.set(1, key, std::to_string(i));
        expected.insert(key);
    }
    c.set(0, "/t/other-db", "x");
    c.set(1, "/u/other-pattern", "x");

    // Handlers that fail do not stop the scan.
    static std::atomic<int> calls{0};
    calls = 0;
    const tukredis_handler failing = [](tukredis_pmsg *pmsg) -> int32_t {
        record_handler(pmsg);
        return ++calls % 3 == 0 ? -11 : 0;
    };
    recorder::get().set_read(reply_read::STRING);
    ASSERT_EQ(tukredis_scan_key_pattern(1, "/t/*", 7, failing, 0, 0), 0);

    std::set<std::string> keys;
    for (const seen_notification &seen : recorder::get().seen()) {
        EXPECT_EQ(seen.db, 1);
        EXPECT_EQ(seen.cmd, TUKREDIS_CMD_SET);
        EXPECT_EQ(seen.str_rc, 0);
        EXPECT_EQ("/t/k" + seen.str, seen.key);
        EXPECT_TRUE(keys.insert(seen.key).second) << "twice: " << seen.key;
    }
    EXPECT_EQ(keys, expected);
}

TEST_F(TukredisTest, ScanSkipsKeysThatDoNotFit) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    client_->set(0, "/s/" + std::string(TUKREDIS_KEY_LEN, 'x'), "1");
    client_->set(0, "/s/ok", "2");
    ASSERT_EQ(tukredis_scan_key_pattern(0, "/s/*", 10, record_handler, 0, 0), 0);
    const std::vector<bus_event> expected = {{0, "/s/ok", TUKREDIS_CMD_SET}};
    EXPECT_EQ(recorder::get().events(), expected);
}

TEST_F(TukredisTest, ScanWithoutMatchesCallsNothing) {
    ASSERT_EQ(tukredis_scan_key_pattern(0, "/none/*", 10, record_handler, 0, 0), 0);
    EXPECT_EQ(recorder::get().count(), 0U);
}

TEST_F(TukredisTest, PatternOperationsRefuseNullArguments) {
    EXPECT_EQ(tukredis_scan_key_pattern(0, nullptr, 10, record_handler, 0, 0), -1);
    EXPECT_EQ(tukredis_scan_key_pattern(0, "*", 10, nullptr, 0, 0), -1);
    EXPECT_EQ(tukredis_pexpire_key_pattern(0, nullptr, 100, 10), -1);
    EXPECT_EQ(tukredis_del_expire_key_pattern(0, nullptr, 10), -1);
}

TEST_F(TukredisTest, PatternOperationsFailWithoutServer) {
    server_.stop();
    EXPECT_EQ(tukredis_scan_key_pattern(0, "*", 10, record_handler, 0, 0), -1);
    EXPECT_EQ(tukredis_pexpire_key_pattern(0, "*", 100, 10), -1);
    EXPECT_EQ(tukredis_del_expire_key_pattern(0, "*", 10), -1);
}

TEST_F(TukredisTest, PexpireGivesEveryMatchingKeyATimeToLive) {
    auto &c = *client_;
    for (int i = 0; i < 30; ++i) {
        c.set(1, "/p/" + std::to_string(i), "v");
    }
    c.set(1, "/q/untouched", "v");
    c.set(0, "/p/other-db", "v");
    ASSERT_EQ(tukredis_pexpire_key_pattern(1, "/p/*", 60000, 4), 0);
    for (int i = 0; i < 30; ++i) {
        const long long ttl = c.pttl(1, "/p/" + std::to_string(i));
        EXPECT_GT(ttl, 0);
        EXPECT_LE(ttl, 60000);
    }
    EXPECT_EQ(c.pttl(1, "/q/untouched"), -1);
    EXPECT_EQ(c.pttl(0, "/p/other-db"), -1);
}

TEST_F(TukredisTest, DelExpireDeletesOnlyKeysStillExpiring) {
    auto &c = *client_;
    c.set(0, "/d/expiring", "v");
    c.set(0, "/d/rewritten", "v");
    c.set(0, "/d/kept", "v");
    c.set(1, "/d/expiring", "other database");
    ASSERT_EQ(tukredis_pexpire_key_pattern(0, "/d/*", 60000, 10), 0);
    ASSERT_EQ(tukredis_pexpire_key_pattern(1, "/d/*", 60000, 10), 0);
    // The daemon wrote the entry again after aging started: SET clears the
    // time-to-live, and the entry must survive.
    c.set(0, "/d/rewritten", "new");
    c.command(0, {"PERSIST", "/d/kept"});

    ASSERT_EQ(tukredis_del_expire_key_pattern(0, "/d/*", 10), 0);
    EXPECT_EQ(c.keys(0, "/d/*"), (std::vector<std::string>{"/d/kept", "/d/rewritten"}));
    EXPECT_EQ(c.get(0, "/d/rewritten"), "new");
    EXPECT_TRUE(c.exists(1, "/d/expiring"));
}

} // namespace
} // namespace platformtest
