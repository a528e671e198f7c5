// SPDX-License-Identifier: BSD-3-Clause
// The write path: formatted commands, database selection, failures, the
// write log, a second thread and deferred cancellation.
#include <pthread.h>

#include "tukredis_fixture.h"

namespace platformtest {
namespace {

using steady_clock = std::chrono::steady_clock;

TEST_F(TukredisTest, CommandsAreFormattedLikeHiredis) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    const char bytes[] = {'a', '\0', 'b'};
    EXPECT_EQ(tukredis_db_command(1, 1, -1, 0, "SET %s %b", "/w/bin", bytes, sizeof bytes), 0);
    EXPECT_EQ(client_->get(1, "/w/bin"), std::string(bytes, sizeof bytes));

    const unsigned short vid = 100;
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/port%d %hu", 7, vid), 0);
    EXPECT_EQ(client_->get(0, "/w/port7"), "100");
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "DEL %s", "/w/port7"), 0);
    EXPECT_FALSE(client_->exists(0, "/w/port7"));
}

TEST_F(TukredisTest, CommandsLandInTheirDatabaseWhateverTheOrder) {
    for (int i = 0; i < 6; ++i) {
        const int db = i % 3 == 0 ? 1 : 0;
        ASSERT_EQ(tukredis_db_command(db, 1, -1, 0, "SET /w/%d %d", i, db), 0);
    }
    for (int i = 0; i < 6; ++i) {
        const int db = i % 3 == 0 ? 1 : 0;
        EXPECT_EQ(client_->get(db, "/w/" + std::to_string(i)), std::to_string(db));
        EXPECT_FALSE(client_->exists(1 - db, "/w/" + std::to_string(i)));
    }
}

TEST_F(TukredisTest, ErrorRepliesAndBadDatabasesFail) {
    client_->set(0, "/w/text", "abc");
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "INCR %s", "/w/text"), -1);
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "NOSUCHCOMMAND"), -1);
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, nullptr), -1);
    // Refused before anything is sent: nothing may land in database 0.
    EXPECT_EQ(tukredis_db_command(99, 1, -1, 0, "SET /w/far 1"), -1);
    EXPECT_EQ(tukredis_db_command(-1, 1, -1, 0, "SET /w/far 1"), -1);
    EXPECT_FALSE(client_->exists(0, "/w/far"));
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/after 1"), 0);
}

TEST_F(TukredisTest, CommandFailsWhileTheServerIsDownAndWorksWhenItIsBack) {
    tukredis_sub_row row = recording_row(0, "*");
    ASSERT_EQ(tukredis_init(&row, 1, record_resync, 0), 0);
    ASSERT_EQ(tukredis_db_connect(), 0);
    ASSERT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 1"), 0);
    server_.stop();
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 2"), -1);
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 3"), -1);
    server_.start();
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 4"), 0);
    EXPECT_EQ(client_->get(0, "/w/a"), "4");
}

TEST_F(TukredisTest, CommandConnectionClosedByTheServerIsReplacedBeforeTheWrite) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    ASSERT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 1"), 0);
    client_->command({"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"});
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 2"), 0);
    EXPECT_EQ(client_->get(0, "/w/a"), "2");
}

TEST_F(TukredisTest, CommandTimesOutOnAServerThatDoesNotAnswer) {
    ASSERT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 1"), 0);
    server_.pause();
    const auto started = steady_clock::now();
    EXPECT_EQ(tukredis_db_command(0, 1, 300, 0, "SET /w/a 2"), -1);
    const auto took = steady_clock::now() - started;
    EXPECT_GE(took, 250ms);
    EXPECT_LT(took, 2000ms);
    server_.resume();
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/a 3"), 0);
    EXPECT_EQ(client_->get(0, "/w/a"), "3");
}

TEST_F(TukredisTest, WriteLogHandlesAndPendingEntries) {
    EXPECT_EQ(tukredis_out_log_pending(), 0);
    EXPECT_EQ(tukredis_db_out_log("/w/a", 0, 0, 0), -1);
    EXPECT_EQ(tukredis_db_out_log(nullptr, 0, 0, 1), -1);

    const int32_t first = tukredis_db_out_log("/w/a", 0, 0, 1);
    const int32_t second = tukredis_db_out_log(std::string(300, 'k').c_str(), 1, 1, 1);
    ASSERT_GE(first, 0);
    ASSERT_GE(second, 0);
    EXPECT_NE(first, second);
    EXPECT_EQ(tukredis_out_log_pending(), 2);
    EXPECT_EQ(tukredis_db_out_log_stat(first), 0);
    EXPECT_EQ(tukredis_out_log_pending(), 1);
    EXPECT_EQ(tukredis_db_out_log_stat(first), 0);
    EXPECT_EQ(tukredis_out_log_pending(), 1);
    EXPECT_EQ(tukredis_db_out_log_stat(-1), -1);
    EXPECT_EQ(tukredis_db_out_log_stat(second + 1000), -1);

    // The ring keeps 64 entries: the oldest slot is reused.
    for (int i = 0; i < 64; ++i) {
        ASSERT_GE(tukredis_db_out_log("/w/more", 0, 0, 1), 0);
    }
    EXPECT_EQ(tukredis_db_out_log_stat(second), -1);
    EXPECT_EQ(tukredis_out_log_pending(), 64);
}

TEST_F(TukredisTest, WritePathWorksFromASecondThreadWhilePubsubRuns) {
    register_rows({recording_row(0, "/w/*")});
    connect_and_subscribe();
    recorder::get().set_read(reply_read::STRING);
    start_pubsub();

    constexpr int WRITES = 200;
    std::atomic<int> failures{0};
    std::thread writer([&] {
        for (int i = 0; i < WRITES; ++i) {
            const std::string key = "/w/" + std::to_string(i);
            const int32_t handle = tukredis_db_out_log(key.c_str(), 0, 0, 1);
            if (handle < 0 || tukredis_db_command(0, 1, -1, 0, "SET %s %d", key.c_str(), i) != 0 ||
                tukredis_db_out_log_stat(handle) != 0) {
                ++failures;
            }
        }
    });
    writer.join();
    EXPECT_EQ(failures, 0);
    ASSERT_EVENTUALLY(10s, recorder::get().count() >= static_cast<size_t>(WRITES));
    for (const seen_notification &seen : recorder::get().seen()) {
        EXPECT_EQ(seen.str_rc, 0) << seen.key;
    }
    EXPECT_EQ(tukredis_out_log_pending(), 0);
}

// Run on a thread whose cancellation is pending when it enters the library.
struct cancelled_call {
    std::atomic<bool> go{false};
    std::atomic<bool> returned{false};
    std::atomic<int32_t> result{-99};
};

void *call_with_cancel_pending(void *argument) {
    auto *call = static_cast<cancelled_call *>(argument);
    while (!call->go) {
        // No cancellation point here: the cancel stays pending.
    }
    call->result = tukredis_db_command(0, 1, -1, 0, "SET /w/cancel 1");
    call->returned = true;
    pthread_testcancel();
    return nullptr;
}

TEST_F(TukredisTest, CancellationDoesNotTakeEffectInsideTheLibrary) {
    ASSERT_EQ(tukredis_db_connect(), 0);
    cancelled_call call;
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, call_with_cancel_pending, &call), 0);
    ASSERT_EQ(pthread_cancel(thread), 0);
    call.go = true;
    void *status = nullptr;
    ASSERT_EQ(pthread_join(thread, &status), 0);
    EXPECT_EQ(status, PTHREAD_CANCELED);
    EXPECT_TRUE(call.returned);
    EXPECT_EQ(call.result, 0);
    // The connection was left whole for the next user.
    EXPECT_EQ(tukredis_db_command(0, 1, -1, 0, "SET /w/cancel 2"), 0);
    EXPECT_EQ(client_->get(0, "/w/cancel"), "2");
}

} // namespace
} // namespace platformtest
