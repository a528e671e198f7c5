// SPDX-License-Identifier: BSD-3-Clause
#include "tukredis_fixture.h"

#include <cstdlib>
#include <cstring>

namespace platformtest {

void PrintTo(const bus_event &event, std::ostream *out) {
    *out << "{db " << event.db << ", \"" << event.key << "\", cmd " << event.cmd << "}";
}

recorder &recorder::get() {
    static recorder instance;
    return instance;
}

void recorder::reset() {
    const std::lock_guard lock(mutex_);
    seen_.clear();
    resync_codes_.clear();
    read_ = reply_read::NOTHING;
    base_ = 10;
}

void recorder::set_read(reply_read read, int32_t base) {
    read_ = read;
    base_ = base;
}

void recorder::record(const tukredis_pmsg &pmsg) {
    seen_notification seen;
    seen.db = pmsg.db;
    seen.key = pmsg.key;
    seen.cmd = pmsg.cmd;
    const reply_read read = read_.load();
    if (read == reply_read::STRING || read == reply_read::STRING_TWICE) {
        for (int i = 0; i < (read == reply_read::STRING_TWICE ? 2 : 1); ++i) {
            char *value = nullptr;
            uint32_t length = 0;
            seen.str_rc = tukredis_get_key_reply_strval(pmsg.reply, &value, &length);
            seen.str_null = value == nullptr;
            if (seen.str_rc == 0 && value != nullptr) {
                seen.str.assign(value, length);
                seen.str_terminated = value[length] == '\0';
            }
        }
    } else if (read == reply_read::INTEGER) {
        seen.int_rc = tukredis_get_key_reply_intval(pmsg.reply, &seen.int_value, base_.load());
    }
    const std::lock_guard lock(mutex_);
    seen_.push_back(std::move(seen));
}

void recorder::record_resync(unsigned code) {
    const std::lock_guard lock(mutex_);
    resync_codes_.push_back(code);
}

std::vector<seen_notification> recorder::seen() const {
    const std::lock_guard lock(mutex_);
    return seen_;
}

std::vector<bus_event> recorder::events() const {
    const std::lock_guard lock(mutex_);
    std::vector<bus_event> events;
    for (const seen_notification &seen : seen_) {
        events.push_back({seen.db, seen.key, seen.cmd});
    }
    return events;
}

size_t recorder::count() const {
    const std::lock_guard lock(mutex_);
    return seen_.size();
}

std::vector<unsigned> recorder::resync_codes() const {
    const std::lock_guard lock(mutex_);
    return resync_codes_;
}

int32_t record_handler(tukredis_pmsg *pmsg) {
    recorder::get().record(*pmsg);
    return 0;
}

int32_t record_resync(unsigned int code) {
    recorder::get().record_resync(code);
    return 0;
}

tukredis_sub_row recording_row(uint32_t db, const std::string &pattern) {
    tukredis_sub_row row{};
    row.db = db;
    std::strncpy(row.pattern, pattern.c_str(), sizeof row.pattern - 1);
    row.handler = record_handler;
    return row;
}

background::background(std::function<void()> body, std::function<void()> unblock)
    : unblock_(std::move(unblock)), thread_([this, body = std::move(body)] {
          body();
          finished_ = true;
      }) {}

background::~background() {
    if (thread_.joinable()) {
        while (!testsupport::eventually([this] { return finished(); }, 100ms)) {
            unblock_();
        }
        thread_.join();
    }
}

void background::join() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

void TukredisTest::SetUp() {
    tukredis_host_reset();
    recorder::get().reset();
    unsetenv("TUKREDIS_PING_INTERVAL_MS");
    unsetenv("TUKREDIS_HOST");
    unsetenv("TUKREDIS_PORT");
    server_.start();
    setenv("TUKREDIS_SOCKET", server_.socket_path().c_str(), 1);
    client_.emplace(server_.socket_path());
}

void TukredisTest::TearDown() {
    // A server that is gone ends any tukredis_pubsub still running.
    server_.stop();
    pubsub_.reset();
    tukredis_host_reset();
    rows_.clear();
    unsetenv("TUKREDIS_SOCKET");
}

void TukredisTest::register_rows(std::vector<tukredis_sub_row> rows, tukredis_resync_cb resync) {
    rows_ = std::move(rows);
    ASSERT_EQ(tukredis_init(rows_.data(), static_cast<int32_t>(rows_.size()), resync, 0), 0);
}

void TukredisTest::connect_and_subscribe() {
    ASSERT_EQ(tukredis_db_connect(), 0);
    ASSERT_EQ(tukredis_db_psubscrible(), 0);
}

void TukredisTest::start_pubsub() {
    pubsub_ = std::make_unique<background>([this] { pubsub_result_ = tukredis_pubsub(); },
                                           [this] { server_.stop(); });
}

tukredis_host_stats TukredisTest::stats() const {
    tukredis_host_stats stats{};
    tukredis_host_get_stats(&stats);
    return stats;
}

} // namespace platformtest
