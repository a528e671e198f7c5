// SPDX-License-Identifier: BSD-3-Clause
// What the recorder reads from the server: the keyspace events of the
// families on a subscription, the values right after them on a second
// connection (pipelined and never waited for: the subscription is read on
// while the values are on their way, so that the recorder keeps up with a
// storm), and the daemon's presence on a third. Every
// record it makes goes to the writer.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "recording_writer.h"

struct pending_event {
    int db;
    std::string key;
    std::string event; // empty: a key of a snapshot
};

class recorder_source {
  public:
    explicit recorder_source(const tool_context &t) : t_(t) {}

    // Connects, checks the server's keyspace-event flags and subscribes.
    // An EXIT_ status, and why when it is not EXIT_FINE.
    int start(std::string *why);
    // Every key of every family in both databases, as one snapshot (with
    // no read in flight: at the start and after a reconnect).
    void snapshot(rec::snapshot_reason reason, rec::segment_writer &out);
    // Waits until the subscription or the value reads have something, or
    // until until_us, and handles it: events are taken (at most limit in
    // all, 0: no limit) and their reads sent, and records whose reads are
    // answered go to out, in the order of the events.
    void serve(int64_t until_us, rec::segment_writer &out, uint64_t limit);
    // Waits for the reads still owed and writes their records.
    void drain(rec::segment_writer &out);
    // At the end: the events already received, then the reads owed.
    void finish(rec::segment_writer &out, uint64_t limit);
    // A presence record when the interval has passed and the state changed.
    void presence_if_due(int64_t now_us, int64_t interval_us, rec::segment_writer &out);
    // Tries to connect again once a second until it does or stop says so;
    // then a snapshot of the reconnect.
    void reconnect(rec::segment_writer &out, const std::function<bool()> &stop);
    // A new file of a ring starts with the daemon's presence as it is.
    void after_rotation(rec::segment_writer &out);

    bool linked() const { return linked_; }
    uint64_t taken() const { return taken_; }
    int64_t next_presence_us() const { return next_presence_us_; }

  private:
    enum class want : uint8_t { SELECT, VALUE, TTL };
    struct value_read {
        want what;
        std::size_t record;
    };
    // Events taken together, and the reads owed for them.
    struct batch {
        std::vector<rec::record> records;
        std::vector<value_read> reads;
        std::size_t answered = 0;
    };
    bool connect(std::string *why);
    void lose(rec::segment_writer &out, const std::string &why);
    void take_events(rec::segment_writer &out, uint64_t limit);
    bool send_reads(const std::vector<pending_event> &events, batch *b);
    void take_answers(rec::segment_writer &out);
    void answer(batch &b, const redisReply &reply);
    void emit_answered(rec::segment_writer &out);
    rec::record stamped(rec::record_type type) const;

    const tool_context &t_;
    std::unique_ptr<connection> sub_;
    std::unique_ptr<connection> values_;
    std::unique_ptr<connection> presence_;
    std::deque<batch> in_flight_;
    bool linked_ = false;
    int values_db_ = -1;
    uint64_t taken_ = 0;
    int64_t next_presence_us_ = 0;
    int last_presence_ = -1;
    std::string last_presence_text_;
    uint32_t segment_ = 1;
};
