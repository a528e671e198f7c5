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

constexpr std::chrono::milliseconds kDefaultCommandTimeout{2000};

// Shared by the daemon's main thread (handlers, reply readers) and its aging
// thread (writes, pattern operations), hence the mutex around every exchange.
// The selected database is tracked so that a SELECT is sent only when the
// database changes, pipelined in front of the command.
class CommandConnection {
  public:
    // Replaces the connection by a new one to address (tukredis_db_connect).
    bool connect(const Address &address, std::string &why);

    // Closes the connection; the next exchange opens a new one.
    void drop();

    // Runs the formatted commands in database db as one pipeline and returns
    // one reply per command, error replies included. False when the exchange
    // failed: then the connection has been dropped (I/O error, timeout) or
    // the database could not be selected, and why says what happened. A
    // dropped connection is reopened by the next exchange, in a single
    // attempt: the caller's write fails rather than waits for the server.
    bool run(int32_t db, const std::vector<std::string> &commands, std::vector<ReplyPtr> &replies,
             std::chrono::milliseconds timeout, std::string &why);

  private:
    bool connect_locked(const Address &address, std::string &why);
    bool usable_locked(std::string &why);
    void lose_locked(const std::string &why);

    std::mutex mutex_;
    ContextPtr context_;
    int32_t selected_db_ = 0;
    int32_t databases_ = -1; // the server's database count, -1 when unknown
};

// Never destroyed: the daemon's aging thread may still write while the
// process exits.
CommandConnection &command_connection();

// One command with its reply, the common case.
ReplyPtr run_one(int32_t db, const std::string &command, std::chrono::milliseconds timeout,
                 std::string &why);

} // namespace tukredis
