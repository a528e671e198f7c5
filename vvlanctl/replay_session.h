// SPDX-License-Identifier: BSD-3-Clause
// replay's side of the server: the daemon's user, the snapshot loaded, the
// daemon started and stopped, the load-complete marker as a barrier, and
// each recorded record played as the switch saw it happen.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "connection.h"
#include "recording_file.h"
#include "replay_process.h"

struct replay_options {
    std::vector<std::string> recordings;
    std::vector<std::string> daemon_argv;
    std::string redis_server; // empty: $REDIS_SERVER_BIN, else redis-server in PATH
    std::string on;           // a given server's socket instead of a private one
    bool keep = false;
    std::string trace = "replay.trace";
    std::string debug = "32";
    std::chrono::milliseconds timeout{30000};
    double speed = 1.0;
    bool fast = false;
    std::optional<int64_t> until_wall_us;   // a recorded wall-clock time
    std::optional<int64_t> until_offset_us; // from the recording's start
    bool json = false;
};

class replay_session {
  public:
    replay_session(const replay_options &o, connection &conn, std::string socket, int trace_fd,
                   std::vector<std::string> *notes);
    ~replay_session();

    // The daemon's user, allowed everything; false with why.
    bool make_user(std::string *why);
    void drop_user();
    // Every key of the snapshot but database 0's learnings, and, when the
    // daemon starts at once (ouis_after_start), but the configured OUIs:
    // the daemon gives an OUI the lowest free slot as it reads it, and its
    // start-up re-read follows the server's SCAN order, which a fresh
    // server does not share with the switch's. Written after its start in
    // the order of the slots the recording shows, they take the same slots
    // (when the recorded slots have no holes).
    bool load(const rec::keyspace &snapshot, bool ouis_after_start, std::string *why);
    // Starts the daemon and waits until it is subscribed and has passed a
    // barrier; the first start also turns traces on and re-writes the
    // snapshot's learnings, which the daemon knew when it was recorded.
    bool start_daemon(const rec::keyspace *warm, std::string *why);
    bool daemon_running();
    // Whether the daemon can pass a barrier: running and subscribed (while
    // the recording shows its subscription lost it follows nothing).
    bool can_barrier();
    void stop_daemon();
    bool barrier(std::string *why);
    // One record after the first snapshot; space is the recorded keyspace
    // before it and is brought past it. *played counts the writes.
    bool play(const rec::record &r, rec::keyspace *space, uint64_t *played, std::string *why);
    // After the last record: the marker as recorded, through a barrier
    // when the recording has one. False only on a failed write.
    bool restore_marker(const rec::keyspace &recorded, bool *compare_copy, std::string *why);
    // Both databases as the replay left them.
    bool read_space(rec::keyspace *out, std::string *why);

  private:
    bool write_key(int db, const std::string &key, const rec::stored_value &v);
    bool wait_subscribed(std::string *why);
    bool marker_reaches(const std::string &value, std::string *why);
    bool presence_change(rec::presence_state to, std::string *why);
    void note(const std::string &text);

    const replay_options &o_;
    connection &conn_;
    std::string socket_;
    int trace_fd_;
    std::vector<std::string> *notes_;
    std::string user_;
    std::string password_;
    std::unique_ptr<replay_daemon> daemon_;
    bool started_once_ = false;
    std::vector<std::pair<std::string, rec::stored_value>> ouis_; // in slot order
    bool denied_ = false;
    int barriers_ = 0;
    rec::presence_state presence_ = rec::presence_state::subscribed;
    // The keyspace where a reconnect's snapshot began.
    std::optional<rec::keyspace> before_reconnect_;
};
