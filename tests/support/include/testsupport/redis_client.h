// SPDX-License-Identifier: BSD-3-Clause
// A plain client for tests to set up and inspect the server's data.
#pragma once

#include <chrono>
#include <hiredis/hiredis.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

struct reply_deleter {
    void operator()(redisReply *reply) const noexcept { freeReplyObject(reply); }
};
using reply_ptr = std::unique_ptr<redisReply, reply_deleter>;

// A blocking hiredis connection to a server's Unix socket, opened on first
// use and reopened after a failure (so it survives redis_server::restart()).
// Every helper takes the database it works in and selects it as needed.
// I/O failures throw std::runtime_error; so do error replies, except from
// command(), which returns them. Not thread-safe: one client per thread.
class redis_client {
  public:
    explicit redis_client(std::string socket_path,
                          std::chrono::milliseconds timeout = std::chrono::milliseconds(5000));
    ~redis_client();
    redis_client(const redis_client &) = delete;
    redis_client &operator=(const redis_client &) = delete;

    // Any command, binary-safe arguments, in database db. Error replies are
    // returned as such.
    reply_ptr command(int db, const std::vector<std::string> &argv);
    // A server-wide command (CONFIG, INFO, CLIENT, FLUSHALL...).
    reply_ptr command(const std::vector<std::string> &argv);

    // Binary-safe: value may hold NUL bytes.
    void set(int db, const std::string &key, const std::string &value);
    // The value, or nullopt when the key does not exist.
    std::optional<std::string> get(int db, const std::string &key);
    // True when the key existed.
    bool del(int db, const std::string &key);
    bool exists(int db, const std::string &key);
    // The keys matching a glob, sorted.
    std::vector<std::string> keys(int db, const std::string &pattern);
    // Milliseconds to live; -1 without a TTL, -2 when the key does not exist.
    long long pttl(int db, const std::string &key);
    // True when the key exists and got the TTL.
    bool pexpire(int db, const std::string &key, long long ms);

    void flushall();
    std::string config_get(const std::string &parameter);
    void config_set(const std::string &parameter, const std::string &value);
    // CLIENT KILL TYPE pubsub: ends every subscribed client's connection.
    // Returns how many were killed.
    long long client_kill_pubsub();
    // INFO section, as text.
    std::string info(const std::string &section);
    // How many times the server ran command since start or CONFIG RESETSTAT
    // (from INFO commandstats; command in lower case, e.g. "get").
    long long command_calls(const std::string &command);

  private:
    redisContext *connection();
    reply_ptr run(const std::vector<std::string> &argv);
    reply_ptr checked(int db, const std::vector<std::string> &argv);
    void select(int db);

    std::string socket_path_;
    std::chrono::milliseconds timeout_;
    redisContext *context_ = nullptr;
    int selected_db_ = 0;
};

} // namespace testsupport
