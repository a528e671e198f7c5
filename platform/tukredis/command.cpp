// SPDX-License-Identifier: BSD-3-Clause
#include "command.h"

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <poll.h>

#include "api.h"
#include "api_guard.h"
#include "log.h"
#include "stats.h"

namespace tukredis {
namespace {

rate_limit &failure_reports() {
    static rate_limit *const limit = new rate_limit(std::chrono::seconds(10));
    return *limit;
}

void report_failure(const char *what, const std::string &why) {
    report_limited(failure_reports(), "%s: %s", what, why.c_str());
}

// A database beyond the server's count would make the pipelined SELECT fail
// after the command behind it already ran in the previous database; knowing
// the count lets such a command be refused before anything is sent.
int32_t read_database_count(redisContext *context, const io_deadline &deadline, std::string &why,
                            bool &ok) {
    const reply_ptr reply = round_trip(context, {"CONFIG", "GET", "databases"}, deadline, why);
    ok = reply != nullptr;
    if (!ok || reply->type != REDIS_REPLY_ARRAY || reply->elements != 2) {
        return -1;
    }
    const std::string text(reply_text(reply->element[1]));
    char *end = nullptr;
    const long long count = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || count <= 0 || count > INT32_MAX) {
        return -1;
    }
    return static_cast<int32_t>(count);
}

// Deferred writes are sent once this much output has gathered, and their
// replies read once this many are owed: enough to fill a pipeline, little
// enough that neither buffer grows without bound during a long scan.
constexpr size_t FLUSH_BYTES = 64 * 1024;
constexpr size_t MOST_PENDING = 1024;

} // namespace

thread_local bool defer_writes::active_ __attribute__((tls_model("initial-exec"))) = false;

command_link &command_connection() {
    static command_link *const instance = new command_link;
    return *instance;
}

bool command_link::connect(const server_address &address, std::string &why) {
    const std::lock_guard lock(mutex_);
    return connect_locked(address, why);
}

void command_link::drop() {
    const std::lock_guard lock(mutex_);
    // Deferred writes go out before the connection is replaced.
    std::string why;
    if (context_ && !settle_locked(why)) {
        report_failure("deferred writes before reconnecting", why);
    }
    context_.reset();
    selected_db_ = 0;
    pending_ = 0;
    unsent_ = 0;
}

size_t command_link::pending() const {
    const std::lock_guard lock(mutex_);
    return pending_;
}

bool command_link::connect_locked(const server_address &address, std::string &why) {
    context_.reset();
    selected_db_ = 0; // a new connection starts in database 0
    pending_ = 0;
    unsent_ = 0;
    context_ptr context = open_bus_connection(address, DEFAULT_COMMAND_TIMEOUT, why);
    if (!context) {
        return false;
    }
    bool ok = false;
    databases_ = read_database_count(context.get(), io_deadline(DEFAULT_COMMAND_TIMEOUT), why, ok);
    if (!ok) {
        return false;
    }
    context_ = std::move(context);
    return true;
}

bool command_link::usable_locked(std::string &why) {
    if (context_ && pending_ > 0) {
        // Replies are owed: a closed connection shows when they are read.
        return true;
    }
    if (context_) {
        // Between exchanges nothing may arrive on this connection, so anything
        // readable is the server closing it (restart, CLIENT KILL, timeout).
        // Noticing it now costs one poll and saves the write that would
        // otherwise fail.
        pollfd idle{context_->fd, POLLIN, 0};
        if (poll(&idle, 1, 0) == 0) {
            return true;
        }
        context_.reset();
    }
    server_address address;
    if (!conn_settings::from_environment(address, why)) {
        return false;
    }
    if (!connect_locked(address, why)) {
        why = "cannot connect to " + address.describe() + ": " + why;
        return false;
    }
    return true;
}

void command_link::lose_locked(const std::string &why) {
    report_failure("command connection lost", why);
    context_.reset();
    selected_db_ = 0;
    pending_ = 0;
    unsent_ = 0;
}

// A database beyond the server's count is refused before anything is sent;
// otherwise SELECT is queued when the database changes. Its reply is read
// with those of the commands behind it.
bool command_link::select_locked(int32_t db, std::string &why) {
    if (db < 0 || (databases_ > 0 && db >= databases_)) {
        why = "no database " + std::to_string(db) + " on the server";
        return false;
    }
    return true;
}

bool command_link::collect_locked(const io_deadline &deadline, std::string &why) {
    while (pending_ > 0) {
        const reply_ptr reply = read_reply(context_.get(), deadline, why);
        if (!reply) {
            lose_locked(why);
            return false;
        }
        --pending_;
        if (reply->type == REDIS_REPLY_ERROR) {
            report_failure("command refused", std::string(reply_text(reply.get())));
        }
    }
    return true;
}

bool command_link::settle_locked(std::string &why) {
    if (!context_ || (pending_ == 0 && unsent_ == 0)) {
        return true;
    }
    const io_deadline deadline(DEFAULT_COMMAND_TIMEOUT);
    if (!flush_output(context_.get(), deadline, why)) {
        lose_locked(why);
        return false;
    }
    unsent_ = 0;
    count(stats().exchanges);
    return collect_locked(deadline, why);
}

bool command_link::settle(std::string &why) {
    const std::lock_guard lock(mutex_);
    return settle_locked(why);
}

bool command_link::send(int32_t db, std::string_view command, std::string &why) {
    const std::lock_guard lock(mutex_);
    if (!usable_locked(why) || !select_locked(db, why)) {
        return false;
    }
    redisContext *context = context_.get();
    if (db != selected_db_) {
        const std::string number = std::to_string(db);
        const std::string select = format_command({"SELECT", number});
        redisAppendFormattedCommand(context, select.data(), select.size());
        ++pending_;
        unsent_ += select.size();
        selected_db_ = db;
    }
    redisAppendFormattedCommand(context, command.data(), command.size());
    ++pending_;
    unsent_ += command.size();
    count(stats().deferred);
    if (unsent_ >= FLUSH_BYTES) {
        // Sent now; the replies are read when they are many or at settle().
        const io_deadline deadline(DEFAULT_COMMAND_TIMEOUT);
        if (!flush_output(context, deadline, why)) {
            lose_locked(why);
            return false;
        }
        unsent_ = 0;
    }
    if (pending_ >= MOST_PENDING) {
        return settle_locked(why);
    }
    return true;
}

bool command_link::run(int32_t db, const std::vector<std::string> &commands,
                       std::vector<reply_ptr> &replies, std::chrono::milliseconds timeout,
                       std::string &why) {
    replies.clear();
    const std::lock_guard lock(mutex_);
    if (!usable_locked(why)) {
        return false;
    }
    if (!select_locked(db, why)) {
        return false;
    }
    redisContext *context = context_.get();
    const bool select = db != selected_db_;
    if (select) {
        const std::string number = std::to_string(db);
        const std::string command = format_command({"SELECT", number});
        redisAppendFormattedCommand(context, command.data(), command.size());
    }
    for (const std::string &command : commands) {
        redisAppendFormattedCommand(context, command.data(), command.size());
    }
    const io_deadline deadline(timeout);
    if (!flush_output(context, deadline, why)) {
        lose_locked(why);
        return false;
    }
    unsent_ = 0;
    count(stats().exchanges);
    // The deferred writes sent before these commands answer first.
    if (!collect_locked(deadline, why)) {
        return false;
    }
    bool selected = true;
    if (select) {
        const reply_ptr reply = read_reply(context, deadline, why);
        if (!reply) {
            lose_locked(why);
            return false;
        }
        selected = reply->type != REDIS_REPLY_ERROR;
        if (selected) {
            selected_db_ = db;
        } else {
            why = "SELECT " + std::to_string(db) + ": " + std::string(reply_text(reply.get()));
        }
    }
    replies.reserve(commands.size());
    for (size_t i = 0; i < commands.size(); ++i) {
        reply_ptr reply = read_reply(context, deadline, why);
        if (!reply) {
            lose_locked(why);
            replies.clear();
            return false;
        }
        replies.push_back(std::move(reply));
    }
    if (!selected) {
        replies.clear();
    }
    return selected;
}

reply_ptr run_one(int32_t db, const std::string &command, std::chrono::milliseconds timeout,
                  std::string &why) {
    std::vector<reply_ptr> replies;
    if (!command_connection().run(db, {command}, replies, timeout, why)) {
        return nullptr;
    }
    return std::move(replies.front());
}

} // namespace tukredis

using namespace tukredis;

namespace {

int32_t db_command(int32_t db, int32_t timeout_ms, const char *format, va_list ap) {
    if (format == nullptr) {
        return -1;
    }
    char *text = nullptr;
    const int length = redisvFormatCommand(&text, format, ap);
    if (length < 0 || text == nullptr) {
        report("cannot format command \"%s\"", format);
        return -1;
    }
    std::string why;
    if (defer_writes::active()) {
        const bool sent =
            command_connection().send(db, std::string_view(text, static_cast<size_t>(length)), why);
        redisFreeCommand(text);
        if (!sent) {
            report_failure("command failed", why);
            return -1;
        }
        return 0;
    }
    const std::string command(text, static_cast<size_t>(length));
    redisFreeCommand(text);
    const auto timeout =
        timeout_ms > 0 ? std::chrono::milliseconds(timeout_ms) : DEFAULT_COMMAND_TIMEOUT;
    const reply_ptr reply = run_one(db, command, timeout, why);
    if (!reply) {
        report_failure("command failed", why);
        return -1;
    }
    if (reply->type == REDIS_REPLY_ERROR) {
        report_failure("command refused", std::string(reply_text(reply.get())));
        return -1;
    }
    return 0;
}

} // namespace

// wait and flags are accepted for the vendor library's signature. The host
// library waits for the reply, which is what wait 1 asks, except inside a
// handler or the re-synchronisation callback, where the command is deferred
// (see defer_writes) and the result only says that it was queued.
int32_t tukredis_db_command(int32_t db, int32_t wait, int32_t timeout_ms, int32_t flags,
                            const char *format, ...) {
    (void)wait;
    (void)flags;
    va_list ap;
    va_start(ap, format);
    const int32_t result =
        c_entry<int32_t>(-1, [&] { return db_command(db, timeout_ms, format, ap); });
    va_end(ap);
    return result;
}
