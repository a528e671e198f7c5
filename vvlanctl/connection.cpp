// SPDX-License-Identifier: BSD-3-Clause
#include "connection.h"

namespace {

// A server that accepts but never answers must not hang the tool.
constexpr std::chrono::milliseconds CONNECT_TIMEOUT{3000};
constexpr std::chrono::milliseconds IO_TIMEOUT{10000};
// What to fix when the server refuses who we are.
constexpr std::string_view AUTH_SETTINGS =
    "--user and --pass (or -a, REDISCLI_AUTH, TUKREDIS_USER and TUKREDIS_PASSWORD_FILE)";

} // namespace

std::unique_ptr<connection> connection::open(const server_address &address,
                                             const conn_settings::credentials &who,
                                             std::string *why) {
    redisContext *ctx = conn_settings::connect_blocking(address, CONNECT_TIMEOUT, IO_TIMEOUT, *why);
    if (ctx == nullptr) {
        return nullptr;
    }
    std::unique_ptr<connection> c(new connection(ctx));
    // Before anything else: a server that wants a password refuses the rest.
    if (!conn_settings::authenticate_blocking(ctx, who, AUTH_SETTINGS, *why)) {
        return nullptr;
    }
    // A server that is there but not usable (loading, protected) is no
    // better than none.
    const reply_ptr pong = c->command({"PING"});
    if (!pong) {
        const std::string_view error = c->error();
        const std::string refusal =
            conn_settings::auth_refusal(error.substr(error.find(' ') + 1), who, AUTH_SETTINGS);
        *why = refusal.empty() ? c->error() : refusal;
        return nullptr;
    }
    return c;
}

connection::~connection() {
    redisFree(ctx_);
}

reply_ptr connection::run(const std::vector<std::string> &argv) {
    if (failed()) {
        return nullptr;
    }
    reply_ptr r(conn_settings::command_argv(ctx_, argv));
    if (!r) {
        error_ = ctx_->err != 0 ? ctx_->errstr : "no reply";
        return nullptr;
    }
    if (r->type == REDIS_REPLY_ERROR) {
        error_ = argv.front() + ": " + std::string(r->str, r->len);
        return nullptr;
    }
    return r;
}

bool connection::select(int db) {
    if (selected_ == db) {
        return !failed();
    }
    if (!run({"SELECT", std::to_string(db)})) {
        return false;
    }
    selected_ = db;
    return true;
}

reply_ptr connection::command(int db, const std::vector<std::string> &argv) {
    return select(db) ? run(argv) : nullptr;
}

reply_ptr connection::command(const std::vector<std::string> &argv) {
    return run(argv);
}

bool connection::set(int db, const std::string &key, const std::string &value) {
    return command(db, {"SET", key, value}) != nullptr;
}

bool connection::del(int db, const std::string &key) {
    return command(db, {"DEL", key}) != nullptr;
}

bool connection::del(int db, const std::string &key, bool *existed) {
    const reply_ptr r = command(db, {"DEL", key});
    if (!r) {
        return false;
    }
    *existed = r->type == REDIS_REPLY_INTEGER && r->integer > 0;
    return true;
}

bool connection::transaction(int db, const std::vector<std::vector<std::string>> &commands) {
    if (!command(db, {"MULTI"})) {
        return false;
    }
    for (const std::vector<std::string> &c : commands) {
        // A refused command is remembered by run(); EXEC is then skipped and
        // the connection closes with the transaction never executed.
        if (!run(c)) {
            return false;
        }
    }
    const reply_ptr r = run({"EXEC"});
    if (!r) {
        return false;
    }
    if (r->type != REDIS_REPLY_ARRAY) {
        error_ = "EXEC: the transaction was not executed";
        return false;
    }
    for (size_t i = 0; i < r->elements; ++i) {
        if (r->element[i]->type == REDIS_REPLY_ERROR) {
            error_ =
                commands[i].front() + ": " + std::string(r->element[i]->str, r->element[i]->len);
            return false;
        }
    }
    return true;
}

std::optional<std::string> connection::get(int db, const std::string &key) {
    const reply_ptr r = command(db, {"GET", key});
    if (!r || r->type != REDIS_REPLY_STRING) {
        return std::nullopt;
    }
    return std::string(r->str, r->len);
}

bool connection::scan(int db, const std::string &match, std::vector<std::string> *keys) {
    std::string cursor = "0";
    do {
        const reply_ptr r = command(db, {"SCAN", cursor, "MATCH", match, "COUNT", "4096"});
        if (!r) {
            return false;
        }
        if (r->type != REDIS_REPLY_ARRAY || r->elements != 2) {
            error_ = "SCAN: unexpected reply";
            return false;
        }
        cursor.assign(r->element[0]->str, r->element[0]->len);
        const redisReply *batch = r->element[1];
        for (size_t i = 0; i < batch->elements; ++i) {
            keys->emplace_back(batch->element[i]->str, batch->element[i]->len);
        }
    } while (cursor != "0");
    return true;
}

bool connection::get_many(int db, const std::vector<std::string> &keys,
                          std::vector<std::optional<std::string>> *values) {
    values->clear();
    if (keys.empty()) {
        return !failed();
    }
    std::vector<std::string> argv{"MGET"};
    argv.insert(argv.end(), keys.begin(), keys.end());
    const reply_ptr r = command(db, argv);
    if (!r) {
        return false;
    }
    if (r->type != REDIS_REPLY_ARRAY || r->elements != keys.size()) {
        error_ = "MGET: unexpected reply";
        return false;
    }
    for (size_t i = 0; i < r->elements; ++i) {
        const redisReply *e = r->element[i];
        if (e->type == REDIS_REPLY_STRING) {
            values->emplace_back(std::string(e->str, e->len));
        } else {
            values->emplace_back(std::nullopt);
        }
    }
    return true;
}

bool connection::missing_keyspace_events(std::string *missing, std::string *wanted) {
    const reply_ptr r = command({"CONFIG", "GET", "notify-keyspace-events"});
    if (!r) {
        return false;
    }
    std::string flags;
    if (r->type == REDIS_REPLY_ARRAY && r->elements == 2) {
        flags.assign(r->element[1]->str, r->element[1]->len);
    }
    missing->clear();
    // "A" stands for all the classes, so it already covers g, $, x and e.
    const bool all = flags.find('A') != std::string::npos;
    for (const char c : std::string("Kg$xe")) {
        if (flags.find(c) == std::string::npos && !(all && c != 'K')) {
            *missing += c;
        }
    }
    *wanted = flags + *missing;
    return true;
}

bool connection::set_keyspace_events(const std::string &wanted) {
    return command({"CONFIG", "SET", "notify-keyspace-events", wanted}) != nullptr;
}
