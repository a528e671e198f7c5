// SPDX-License-Identifier: BSD-3-Clause
#include "testsupport/redis_client.h"

#include "conn_settings.h"

#include <algorithm>
#include <stdexcept>

namespace testsupport {
namespace {

std::string text_of(const redisReply *reply) {
    return reply->str != nullptr ? std::string(reply->str, reply->len) : std::string();
}

} // namespace

redis_client::redis_client(std::string socket_path, std::chrono::milliseconds timeout)
    : socket_path_(std::move(socket_path)), timeout_(timeout) {}

redis_client::~redis_client() {
    if (context_ != nullptr) {
        redisFree(context_);
    }
}

redisContext *redis_client::connection() {
    if (context_ != nullptr) {
        return context_;
    }
    std::string why;
    redisContext *context = conn_settings::connect_blocking(
        conn_settings::server_address::unix_socket(socket_path_), timeout_, timeout_, why);
    if (context == nullptr) {
        throw std::runtime_error("redis client: cannot connect to " + socket_path_ + ": " + why);
    }
    context_ = context;
    selected_db_ = 0;
    return context_;
}

reply_ptr redis_client::run(const std::vector<std::string> &argv) {
    redisContext *context = connection();
    redisReply *reply = conn_settings::command_argv(context, argv);
    if (reply == nullptr) {
        // A context that failed is not reused; the next call reconnects.
        const std::string why = context->errstr;
        redisFree(context);
        context_ = nullptr;
        throw std::runtime_error("redis client: " + (argv.empty() ? "" : argv[0]) + ": " + why);
    }
    return reply_ptr(reply);
}

void redis_client::select(int db) {
    connection();
    if (db == selected_db_) {
        return;
    }
    reply_ptr reply = run({"SELECT", std::to_string(db)});
    if (reply->type == REDIS_REPLY_ERROR) {
        throw std::runtime_error("redis client: SELECT " + std::to_string(db) + ": " +
                                 text_of(reply.get()));
    }
    selected_db_ = db;
}

reply_ptr redis_client::command(int db, const std::vector<std::string> &argv) {
    select(db);
    return run(argv);
}

reply_ptr redis_client::command(const std::vector<std::string> &argv) {
    return run(argv);
}

reply_ptr redis_client::checked(int db, const std::vector<std::string> &argv) {
    reply_ptr reply = command(db, argv);
    if (reply->type == REDIS_REPLY_ERROR) {
        throw std::runtime_error("redis client: " + argv.front() + ": " + text_of(reply.get()));
    }
    return reply;
}

void redis_client::set(int db, const std::string &key, const std::string &value) {
    checked(db, {"SET", key, value});
}

std::optional<std::string> redis_client::get(int db, const std::string &key) {
    const reply_ptr reply = checked(db, {"GET", key});
    if (reply->type == REDIS_REPLY_NIL) {
        return std::nullopt;
    }
    return text_of(reply.get());
}

bool redis_client::del(int db, const std::string &key) {
    return checked(db, {"DEL", key})->integer > 0;
}

bool redis_client::exists(int db, const std::string &key) {
    return checked(db, {"EXISTS", key})->integer > 0;
}

std::vector<std::string> redis_client::keys(int db, const std::string &pattern) {
    const reply_ptr reply = checked(db, {"KEYS", pattern});
    std::vector<std::string> found;
    for (size_t i = 0; i < reply->elements; ++i) {
        found.push_back(text_of(reply->element[i]));
    }
    std::sort(found.begin(), found.end());
    return found;
}

long long redis_client::pttl(int db, const std::string &key) {
    return checked(db, {"PTTL", key})->integer;
}

bool redis_client::pexpire(int db, const std::string &key, long long ms) {
    return checked(db, {"PEXPIRE", key, std::to_string(ms)})->integer == 1;
}

void redis_client::flushall() {
    checked(selected_db_, {"FLUSHALL"});
}

std::string redis_client::config_get(const std::string &parameter) {
    const reply_ptr reply = checked(selected_db_, {"CONFIG", "GET", parameter});
    if (reply->type != REDIS_REPLY_ARRAY || reply->elements != 2) {
        throw std::runtime_error("redis client: no configuration parameter " + parameter);
    }
    return text_of(reply->element[1]);
}

void redis_client::config_set(const std::string &parameter, const std::string &value) {
    checked(selected_db_, {"CONFIG", "SET", parameter, value});
}

long long redis_client::client_kill_pubsub() {
    return checked(selected_db_, {"CLIENT", "KILL", "TYPE", "pubsub"})->integer;
}

std::string redis_client::info(const std::string &section) {
    return text_of(checked(selected_db_, {"INFO", section}).get());
}

long long redis_client::command_calls(const std::string &command) {
    const std::string stats = info("commandstats");
    const std::string label = "cmdstat_" + command + ":calls=";
    const size_t at = stats.find(label);
    if (at == std::string::npos) {
        return 0;
    }
    return std::stoll(stats.substr(at + label.size()));
}

} // namespace testsupport
