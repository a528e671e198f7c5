// SPDX-License-Identifier: BSD-3-Clause
// Writes made inside handlers and the re-synchronisation callback are sent
// without waiting for their replies: in order, never left unsent, seen by
// every later read, and in order with a second thread's writes. The scan
// fetches its values a batch at a time.
#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>

#include "tukredis_fixture.h"

namespace platformtest {
namespace {

// For every notification on /in/<n>: two pushes, one per database, so that
// the connection alternates databases as the daemon's joins do.
int32_t push_twice(tukredis_pmsg *pmsg) {
    recorder::get().record(*pmsg);
    tukredis_db_command(0, 1, -1, 0, "RPUSH /log %s", pmsg->key);
    tukredis_db_command(1, 1, -1, 0, "RPUSH /log %s", pmsg->key);
    return 0;
}

tukredis_sub_row row_with(uint32_t db, const char *pattern, tukredis_handler handler) {
    tukredis_sub_row row = recording_row(db, pattern);
    row.handler = handler;
    return row;
}

long long length_of_log(testsupport::redis_client &client, int db) {
    const testsupport::reply_ptr reply = client.command(db, {"LLEN", "/log"});
    return reply && reply->type == REDIS_REPLY_INTEGER ? reply->integer : -1;
}

std::vector<std::string> log_of(testsupport::redis_client &client, int db) {
    const testsupport::reply_ptr reply = client.command(db, {"LRANGE", "/log", "0", "-1"});
    std::vector<std::string> items;
    if (reply && reply->type == REDIS_REPLY_ARRAY) {
        for (size_t i = 0; i < reply->elements; ++i) {
            items.emplace_back(reply->element[i]->str, reply->element[i]->len);
        }
    }
    return items;
}

std::vector<std::string> keys_in(int count) {
    std::vector<std::string> keys;
    for (int i = 0; i < count; ++i) {
        keys.push_back("/in/" + std::to_string(i));
    }
    return keys;
}

TEST_F(TukredisTest, HandlerWritesAreDeferredAndLandInOrderInTheirDatabases) {
    register_rows({row_with(0, "/in/*", push_twice)});
    connect_and_subscribe();
    start_pubsub();
    constexpr int EVENTS = 300;
    for (const std::string &key : keys_in(EVENTS)) {
        client_->set(0, key, "1");
    }
    ASSERT_EVENTUALLY(10s, length_of_log(*client_, 1) == EVENTS);
    EXPECT_EQ(log_of(*client_, 0), keys_in(EVENTS));
    EXPECT_EQ(log_of(*client_, 1), keys_in(EVENTS));
    // None waited for its reply.
    EXPECT_EQ(stats().deferred, 2U * EVENTS);
}

TEST_F(TukredisTest, ADeferredWriteIsSentWithoutAnotherEventBehindIt) {
    register_rows({row_with(0, "/in/*", push_twice)});
    connect_and_subscribe();
    start_pubsub();
    client_->set(0, "/in/only", "1");
    EXPECT_EVENTUALLY(5s, length_of_log(*client_, 1) == 1);
}

// Overwrites the notified key once, then reads it: the read must see the
// write deferred just before it on the same connection.
std::mutex g_overwritten_mutex;
std::set<std::string> g_overwritten;

int32_t overwrite_then_read(tukredis_pmsg *pmsg) {
    {
        const std::lock_guard lock(g_overwritten_mutex);
        if (!g_overwritten.insert(pmsg->key).second) {
            return 0; // the overwrite's own notification
        }
    }
    tukredis_db_command(0, 1, -1, 0, "SET %s changed", pmsg->key);
    recorder::get().record(*pmsg);
    return 0;
}

TEST_F(TukredisTest, AReadAfterDeferredWritesSeesThem) {
    g_overwritten.clear();
    register_rows({row_with(0, "/in/*", overwrite_then_read)});
    connect_and_subscribe();
    recorder::get().set_read(reply_read::STRING);
    start_pubsub();
    for (const std::string &key : keys_in(50)) {
        client_->set(0, key, "original");
    }
    ASSERT_EVENTUALLY(10s, recorder::get().count() >= 50);
    for (const seen_notification &seen : recorder::get().seen()) {
        EXPECT_EQ(seen.str_rc, 0) << seen.key;
        EXPECT_EQ(seen.str, "changed") << seen.key;
    }
}

// The aging thread's writes wait for their replies; they keep their own
// order and come after whatever the main thread deferred before them.
TEST_F(TukredisTest, ASecondThreadsWritesKeepTheirOrderAmongDeferredOnes) {
    register_rows({row_with(0, "/in/*", push_twice)});
    connect_and_subscribe();
    start_pubsub();
    constexpr int EACH = 200;
    std::thread aging([] {
        for (int i = 0; i < EACH; ++i) {
            tukredis_db_command(0, 1, -1, 0, "RPUSH /log aging/%d", i);
        }
    });
    for (const std::string &key : keys_in(EACH)) {
        client_->set(0, key, "1");
    }
    aging.join();
    ASSERT_EVENTUALLY(10s, length_of_log(*client_, 0) == 2 * EACH);
    std::vector<std::string> from_aging;
    std::vector<std::string> from_handlers;
    for (const std::string &item : log_of(*client_, 0)) {
        (item.starts_with("aging/") ? from_aging : from_handlers).push_back(item);
    }
    std::vector<std::string> expected_aging;
    for (int i = 0; i < EACH; ++i) {
        expected_aging.push_back("aging/" + std::to_string(i));
    }
    EXPECT_EQ(from_aging, expected_aging);
    EXPECT_EQ(from_handlers, keys_in(EACH));
}

TEST_F(TukredisTest, ScanReadsValuesABatchAtATime) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    constexpr int KEYS = 300;
    for (int i = 0; i < KEYS; ++i) {
        client_->set(1, "/t/k" + std::to_string(i), std::to_string(i));
    }
    recorder::get().set_read(reply_read::STRING);
    const uint32_t before = stats().exchanges;
    ASSERT_EQ(tukredis_scan_key_pattern(1, "/t/*", 100, record_handler, 0, 0), 0);
    ASSERT_EQ(recorder::get().count(), static_cast<size_t>(KEYS));
    for (const seen_notification &seen : recorder::get().seen()) {
        EXPECT_EQ(seen.str_rc, 0);
        EXPECT_EQ("/t/k" + seen.str, seen.key);
    }
    // A SCAN and a pipeline of GETs per batch, not a GET per key.
    EXPECT_LT(stats().exchanges - before, 20U);
}

int32_t write_per_key(tukredis_pmsg *pmsg) {
    recorder::get().record(*pmsg);
    tukredis_db_command(0, 1, -1, 0, "SET %s copied", pmsg->key);
    return 0;
}

int32_t write_copy(tukredis_pmsg *pmsg) {
    tukredis_db_command(0, 1, -1, 0, "SET /copy/%s copied", pmsg->key + std::strlen("/source/"));
    return 0;
}

TEST_F(TukredisTest, WritesOfAScanCalledOnItsOwnAreInPlaceWhenItReturns) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    for (int i = 0; i < 30; ++i) {
        client_->set(1, "/t/k" + std::to_string(i), "v");
    }
    ASSERT_EQ(tukredis_scan_key_pattern(1, "/t/*", 100, write_per_key, 0, 0), 0);
    EXPECT_EQ(client_->keys(0, "/t/*").size(), 30U);
    EXPECT_EQ(stats().deferred, 30U);
}

// The daemon's re-synchronisation in small: mark what it published, re-read
// the source (which re-publishes part of it), sweep what was not re-written.
int32_t mark_reread_sweep(unsigned int code) {
    record_resync(code);
    tukredis_pexpire_key_pattern(0, "/copy/*", 3600000, 100);
    tukredis_scan_key_pattern(1, "/source/*", 100, write_copy, 0, 0);
    tukredis_del_expire_key_pattern(0, "/copy/*", 100);
    return 0;
}

TEST_F(TukredisTest, MarksAndSweepsInTheResyncAreDeferredAndKeepTheirOrder) {
    for (int i = 0; i < 40; ++i) {
        client_->set(0, "/copy/" + std::to_string(i), "old");
    }
    for (int i = 0; i < 40; i += 2) {
        client_->set(1, "/source/" + std::to_string(i), "v");
    }
    register_rows({recording_row(0, "/none/*")}, mark_reread_sweep);
    connect_and_subscribe();
    ASSERT_EQ(recorder::get().resync_codes(), std::vector<unsigned>{0});
    // Re-written copies survive without a time-to-live; the rest are swept.
    std::vector<std::string> kept;
    for (int i = 0; i < 40; i += 2) {
        kept.push_back("/copy/" + std::to_string(i));
        EXPECT_EQ(client_->get(0, kept.back()), "copied");
        EXPECT_EQ(client_->pttl(0, kept.back()), -1);
    }
    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(client_->keys(0, "/copy/*"), kept);
    // 40 marks, 20 copies and 40 sweeps, none waiting for its reply.
    EXPECT_EQ(stats().deferred, 100U);
}

} // namespace
} // namespace platformtest
