// SPDX-License-Identifier: BSD-3-Clause
// What the tukredis tests share: a private server per test, handlers that
// record what they are given, and threads that never outlive a failed test.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "testsupport/testsupport.h"
#include "tukredis.h"
#include "tukredis_host.h"

namespace platformtest {

using namespace std::chrono_literals;

// One notification as a handler saw it, with what it read from the reply.
struct seen_notification {
    int32_t db = 0;
    std::string key;
    int32_t cmd = 0;

    int32_t str_rc = 0;
    bool str_null = false;
    std::string str;
    bool str_terminated = false;

    int32_t int_rc = 0;
    int32_t int_value = 0;
};

// A notification without what was read, for comparing sequences.
struct bus_event {
    int32_t db;
    std::string key;
    int32_t cmd;

    bool operator==(const bus_event &) const = default;
};
void PrintTo(const bus_event &event, std::ostream *out);

// What the recording handler does with the reply.
enum class reply_read { NOTHING, STRING, STRING_TWICE, INTEGER };

// Handlers are plain function pointers, so what they see is kept here,
// process-wide.
class recorder {
  public:
    static recorder &get();

    void reset();
    void set_read(reply_read read, int32_t base = 10);
    void record(const tukredis_pmsg &pmsg);
    void record_resync(unsigned code);

    std::vector<seen_notification> seen() const;
    std::vector<bus_event> events() const;
    size_t count() const;
    std::vector<unsigned> resync_codes() const;

  private:
    mutable std::mutex mutex_;
    std::vector<seen_notification> seen_;
    std::vector<unsigned> resync_codes_;
    std::atomic<reply_read> read_{reply_read::NOTHING};
    std::atomic<int32_t> base_{10};
};

// The handler and callback that feed the recorder.
int32_t record_handler(tukredis_pmsg *pmsg);
int32_t record_resync(unsigned int code);

tukredis_sub_row recording_row(uint32_t db, const std::string &pattern);

// Runs body on its own thread. If it is still running when the object goes,
// unblock is called (repeatedly, every 100 ms) until it ends, so that a
// failed assertion never leaves a thread blocked inside the library.
class background {
  public:
    background(std::function<void()> body, std::function<void()> unblock);
    ~background();
    background(const background &) = delete;
    background &operator=(const background &) = delete;

    bool finished() const { return finished_.load(); }
    void join();

  private:
    std::atomic<bool> finished_{false};
    std::function<void()> unblock_;
    std::thread thread_;
};

// Each test gets a fresh library state and its own server, reached through
// TUKREDIS_SOCKET.
class TukredisTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Registers rows (kept by the fixture, as the library keeps the table by
    // reference) with the recording resync callback.
    void register_rows(std::vector<tukredis_sub_row> rows,
                       tukredis_resync_cb resync = record_resync);
    // tukredis_db_connect and tukredis_db_psubscrible, both expected to work.
    void connect_and_subscribe();
    // Runs one tukredis_pubsub on a thread; it ends when the connection is
    // lost, which TearDown makes sure of.
    void start_pubsub();
    bool pubsub_finished() const { return pubsub_ && pubsub_->finished(); }
    int32_t pubsub_result() const { return pubsub_result_.load(); }

    tukredis_host_stats stats() const;

    testsupport::redis_server server_;
    std::optional<testsupport::redis_client> client_;
    std::vector<tukredis_sub_row> rows_;
    std::unique_ptr<background> pubsub_;
    std::atomic<int32_t> pubsub_result_{0};
};

} // namespace platformtest
