// SPDX-License-Identifier: BSD-3-Clause
// The command connection: every read and write the daemon makes outside the
// subscription goes over this one connection.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "conn.h"
#include "io.h"

namespace tukredis {

constexpr std::chrono::milliseconds DEFAULT_COMMAND_TIMEOUT{2000};

// While one of these lives on a thread, tukredis_db_command on that thread
// sends its command behind those before it and returns without waiting for
// the reply. The library sets it around the handlers it calls and around the
// re-synchronisation callback: the daemon ignores the result of every write
// it makes there, and a round trip per write was most of the cost of a join
// and of a re-synchronisation. Outside (the aging thread, tests) a command
// still waits for its reply.
class defer_writes {
  public:
    defer_writes() noexcept : previous_(active_) { active_ = true; }
    ~defer_writes() { active_ = previous_; }
    defer_writes(const defer_writes &) = delete;
    defer_writes &operator=(const defer_writes &) = delete;

    static bool active() noexcept { return active_; }

  private:
    // Initial-exec: the library is linked at start-up, never dlopen()ed,
    // so the flag is a fixed offset from the thread pointer rather than a
    // call to __tls_get_addr on every notification.
    static thread_local bool active_ __attribute__((tls_model("initial-exec")));
    bool previous_;
};

// Shared by the daemon's main thread (handlers, reply readers) and its aging
// thread (writes, pattern operations), hence the mutex around every exchange.
// The selected database is tracked so that a SELECT is sent only when the
// database changes, pipelined in front of the command.
//
// Deferred writes stay in order with everything else on the connection: the
// server runs one connection's commands in the order sent, so a later read,
// from either thread, sees them, and a command that waits for its reply first
// reads the replies of the deferred ones before it.
class command_link {
  public:
    // Replaces the connection by a new one to address (tukredis_db_connect).
    bool connect(const server_address &address, std::string &why);

    // Closes the connection; the next exchange opens a new one.
    void drop();

    // Runs the formatted commands in database db as one pipeline and returns
    // one reply per command, error replies included. False when the exchange
    // failed: then the connection has been dropped (I/O error, timeout) or
    // the database could not be selected, and why says what happened. A
    // dropped connection is reopened by the next exchange, in a single
    // attempt: the caller's write fails rather than waits for the server.
    bool run(int32_t db, const std::vector<std::string> &commands, std::vector<reply_ptr> &replies,
             std::chrono::milliseconds timeout, std::string &why);

    // Queues one formatted command in database db without waiting for its
    // reply (a deferred write). The output is sent once enough has gathered,
    // and at the latest by settle() or the next exchange. False, with why,
    // when there is no connection or no such database.
    bool send(int32_t db, std::string_view command, std::string &why);

    // Sends whatever is queued and reads the replies of the deferred writes,
    // reporting refused ones. False when the connection failed meanwhile.
    bool settle(std::string &why);

    // Deferred writes whose replies have not been read yet.
    size_t pending() const;

  private:
    bool connect_locked(const server_address &address, std::string &why);
    bool usable_locked(std::string &why);
    void lose_locked(const std::string &why);
    bool select_locked(int32_t db, std::string &why);
    // Reads the replies of the deferred writes; the output must have been
    // flushed.
    bool collect_locked(const io_deadline &deadline, std::string &why);
    bool settle_locked(std::string &why);

    mutable std::mutex mutex_;
    context_ptr context_;
    int32_t selected_db_ = 0;
    int32_t databases_ = -1; // the server's database count, -1 when unknown
    size_t pending_ = 0;     // replies owed to deferred writes (SELECTs included)
    size_t unsent_ = 0;      // bytes appended since the last flush (hiredis's
                             // output buffer is not its API)
};

// Never destroyed: the daemon's aging thread may still write while the
// process exits.
command_link &command_connection();

// One command with its reply, the common case.
reply_ptr run_one(int32_t db, const std::string &command, std::chrono::milliseconds timeout,
                  std::string &why);

} // namespace tukredis
