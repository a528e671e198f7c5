// SPDX-License-Identifier: BSD-3-Clause
// What the recorder reads from the server: the keyspace events of the
// families on a subscription, the values right after them on a second
// connection (pipelined, a batch of events at a time, so that the recorder
// keeps up with a storm), and the daemon's presence on a third. Every
// record it makes goes to the writer.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "recording_writer.h"

class recorder_source {
  public:
    explicit recorder_source(const tool_context &t) : t_(t) {}

    // Connects, checks the server's keyspace-event flags and subscribes.
    // An EXIT_ status, and why when it is not EXIT_FINE.
    int start(std::string *why);
    // Every key of every family in both databases, as one snapshot.
    void snapshot(rec::snapshot_reason reason, rec::segment_writer &out);
    // The events the subscription holds now, each with the value read
    // after it; stops at limit events in all (0: no limit).
    void read_events(rec::segment_writer &out, uint64_t limit);
    // A presence record when the interval has passed and the state changed.
    void presence_if_due(int64_t now_us, int64_t interval_us, rec::segment_writer &out);
    // Tries to connect again once a second until it does or stop says so;
    // then a snapshot of the reconnect.
    void reconnect(rec::segment_writer &out, const std::function<bool()> &stop);
    // A new file of a ring starts with the daemon's presence as it is.
    void after_rotation(rec::segment_writer &out);

    bool linked() const { return linked_; }
    int fd() const;
    int64_t next_presence_us() const { return next_presence_us_; }

  private:
    struct pending_event {
        int db;
        std::string key;
        std::string event;
    };
    bool connect(std::string *why);
    void lose(rec::segment_writer &out, const std::string &why);
    bool fetch_values(const std::vector<pending_event> &events, std::vector<rec::record> *out);
    rec::record stamped(rec::record_type type) const;

    const tool_context &t_;
    std::unique_ptr<connection> sub_;
    std::unique_ptr<connection> values_;
    std::unique_ptr<connection> presence_;
    bool linked_ = false;
    int values_db_ = -1;
    int64_t next_presence_us_ = 0;
    int last_presence_ = -1;
    std::string last_presence_text_;
    uint32_t segment_ = 1;
};
