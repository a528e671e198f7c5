// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl's connection to the switch's redis-server (where it is comes from
// conn_settings: the options, then the bus library's environment, then
// 127.0.0.1:6379) and the few commands the tool needs, binary-safe, in
// either database.
#pragma once

#include <hiredis/hiredis.h>

#include "conn_settings.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

using conn_settings::server_address;

struct reply_deleter {
    void operator()(redisReply *r) const { freeReplyObject(r); }
};
using reply_ptr = std::unique_ptr<redisReply, reply_deleter>;

// One blocking connection. Any I/O failure or error reply is remembered in
// error() and makes every later call fail: the caller reports it once and
// exits with the "cannot connect" status.
class connection {
  public:
    // Connected, authenticated as who when who has a password, and answering.
    static std::unique_ptr<connection>
    open(const server_address &address, const conn_settings::credentials &who, std::string *why);
    ~connection();
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    // Any command in database db (nullptr on failure).
    reply_ptr command(int db, const std::vector<std::string> &argv);
    // A server-wide command, in whatever database is selected.
    reply_ptr command(const std::vector<std::string> &argv);

    bool set(int db, const std::string &key, const std::string &value);
    bool del(int db, const std::string &key);
    // DEL that says whether the key was there (*existed).
    bool del(int db, const std::string &key, bool *existed);
    // The commands in database db as one MULTI/EXEC transaction: all of them
    // or (on any error) none.
    bool transaction(int db, const std::vector<std::vector<std::string>> &commands);
    std::optional<std::string> get(int db, const std::string &key);
    // Every key of db matching the glob, by SCAN, in no particular order.
    bool scan(int db, const std::string &match, std::vector<std::string> *keys);
    // The values of keys (nullopt for a missing key), in one MGET.
    bool get_many(int db, const std::vector<std::string> &keys,
                  std::vector<std::optional<std::string>> *values);

    // The keyspace-event flags the bus library relies on (K, and generic,
    // string, expiry, eviction) that the server's notify-keyspace-events
    // lacks, in *missing, and all of its flags with them in *wanted. False
    // when the server will not say (CONFIG renamed or denied).
    bool missing_keyspace_events(std::string *missing, std::string *wanted);
    // Sets notify-keyspace-events to wanted.
    bool set_keyspace_events(const std::string &wanted);

    redisContext *raw() { return ctx_; }
    bool failed() const { return !error_.empty(); }
    const std::string &error() const { return error_; }

  private:
    explicit connection(redisContext *ctx) : ctx_(ctx) {}
    bool select(int db);
    reply_ptr run(const std::vector<std::string> &argv);

    redisContext *ctx_;
    int selected_ = 0;
    std::string error_;
};
