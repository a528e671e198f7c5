// SPDX-License-Identifier: BSD-3-Clause
// The in-memory double of the bus library, shared by the unit tests, the
// benchmarks and the fuzzer.
//
// Recording (the default, for unit tests): every call is recorded in order,
// the commands are rendered into argv form exactly as hiredis would send
// them, and two in-memory databases answer values, scans and pattern
// operations. Thread-safe: the aging thread writes through it too.
//
// Lean (benchmarks, fuzzer): nothing is recorded or stored and no lock is
// taken; every command is still checked to be one the daemon can make and
// counted, and a value is still handed out in a buffer of exactly its length.
//
// In both modes a command the daemon could never make (a database other than
// 0 and 1, a key over 127 characters, a format outside its four) aborts.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tukredis.h"

namespace fake {

// One bus call, in the order it was made.
struct bus_call {
    std::string op; // "out_log", "command", "out_log_stat", "intval", "strval",
                    // "scan", "pexpire", "del_expire"
    int32_t db = -1;
    std::string key;                    // key or pattern
    std::vector<std::string> argv;      // "command": the rendered command
    std::vector<int32_t> args;          // the other integer arguments, in order
    int32_t handle = 0;                 // "out_log" (returned), "out_log_stat" (passed)
    tukredis_handler handler = nullptr; // "scan"
    std::thread::id thread;
};

// A command as it reached the database.
struct db_write {
    int32_t db;
    std::vector<std::string> argv;
    bool operator==(const db_write &) const = default;
};

db_write set_write(int32_t db, const std::string &key, const std::string &value);
db_write del_write(int32_t db, const std::string &key);
std::string bytes(std::initializer_list<int> values); // raw value from byte values

// Recording (true, the default) or lean (false); see above. Also switches
// the device manager's and the trace sink's recording.
void set_recording(bool on);
bool recording();
// Commands issued through tukredis_db_command, in either mode.
long commands_issued();

// The reply handle a test hands to a handler inside a tukredis_pmsg.
struct reply {
    enum class state { VALUE, ABSENT, FAILED };
    state what = state::ABSENT;
    std::string value;
    int32_t fail_code = -1; // what a failed read returns
    int reads = 0;
    // What a read hands out: a copy of exactly the value's length, so that a
    // read past the value is caught by the sanitizers.
    std::vector<char> exact;
};

class bus {
  public:
    static bus &get();
    void reset();

    // Databases 0 and 1. A SET clears a key's time-to-live mark, as Redis does.
    void put(int32_t db, const std::string &key, const std::string &value);
    std::optional<std::string> value(int32_t db, const std::string &key) const;
    std::vector<std::string> keys(int32_t db) const;
    bool has_ttl(int32_t db, const std::string &key) const;

    std::vector<bus_call> calls() const;
    std::vector<db_write> writes() const;
    void clear_calls();

    // Knobs.
    void set_out_log_returns_none(bool none); // tukredis_db_out_log returns -1
    void set_scan_reply_fails(bool fail);     // values handed out by scans fail to read

    // A gate inside tukredis_db_command: once armed, the next command blocks
    // until the test opens the gate, so a test can act while a thread is in
    // the middle of a bus write.
    void arm_command_gate();
    bool wait_command_gate(std::chrono::milliseconds deadline);
    void open_command_gate();
    void pass_command_gate(); // used by the C entry point

    // Checks the write convention over everything recorded: per thread,
    // out_log(key, op, db) then the command, then out_log_stat with the
    // handle unless it was -1. Returns an empty string when it holds, or
    // what broke.
    std::string check_write_convention() const;

    // Used by the C entry points.
    void record(bus_call call);
    int32_t next_handle();
    void apply(int32_t db, const std::vector<std::string> &argv);
    std::vector<std::pair<std::string, std::string>> matching(int32_t db,
                                                              const std::string &pattern) const;
    void mark_ttl(int32_t db, const std::string &key);
    void drop_if_ttl(int32_t db, const std::string &key);
    bool scan_reply_fails() const;

  private:
    mutable std::mutex mutex_;
    std::vector<bus_call> calls_;
    std::map<std::string, std::string> store_[2];
    std::set<std::string> ttl_[2];
    int32_t handle_ = 100;
    bool out_log_none_ = false;
    bool scan_reply_fails_ = false;
    std::mutex gate_mutex_;
    std::condition_variable gate_cond_;
    bool gate_armed_ = false;
    bool gate_waiting_ = false;
    bool gate_open_ = false;
};

// A notification record with its reply, ready to hand to a handler.
struct message {
    tukredis_pmsg pmsg{};
    reply rep;

    message(int32_t db, const std::string &key, int32_t cmd);
    message(int32_t db, const std::string &key, int32_t cmd, const std::string &value);
    message(const message &) = delete;
    message &operator=(const message &) = delete;
    message &fail_read(int32_t code = -1);
};

} // namespace fake
