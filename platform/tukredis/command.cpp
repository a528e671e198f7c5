#include "command.h"

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <poll.h>

#include "api.h"
#include "api_guard.h"
#include "log.h"

namespace tukredis {
namespace {

RateLimit &failure_reports() {
    static RateLimit *const limit = new RateLimit(std::chrono::seconds(10));
    return *limit;
}

void report_failure(const char *what, const std::string &why) {
    report_limited(failure_reports(), "%s: %s", what, why.c_str());
}

// A database beyond the server's count would make the pipelined SELECT fail
// after the command behind it already ran in the previous database; knowing
// the count lets such a command be refused before anything is sent.
int32_t read_database_count(redisContext *context, const Deadline &deadline, std::string &why,
                            bool &ok) {
    const ReplyPtr reply = round_trip(context, {"CONFIG", "GET", "databases"}, deadline, why);
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

} // namespace

CommandConnection &command_connection() {
    static CommandConnection *const instance = new CommandConnection;
    return *instance;
}

bool CommandConnection::connect(const Address &address, std::string &why) {
    const std::lock_guard lock(mutex_);
    return connect_locked(address, why);
}

void CommandConnection::drop() {
    const std::lock_guard lock(mutex_);
    context_.reset();
    selected_db_ = 0;
}

bool CommandConnection::connect_locked(const Address &address, std::string &why) {
    context_.reset();
    selected_db_ = 0; // a new connection starts in database 0
    ContextPtr context = open_bus_connection(address, kDefaultCommandTimeout, why);
    if (!context) {
        return false;
    }
    bool ok = false;
    databases_ = read_database_count(context.get(), Deadline(kDefaultCommandTimeout), why, ok);
    if (!ok) {
        return false;
    }
    context_ = std::move(context);
    return true;
}

bool CommandConnection::usable_locked(std::string &why) {
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
    Address address;
    if (!address_from_env(address, why)) {
        return false;
    }
    if (!connect_locked(address, why)) {
        why = "cannot connect to " + address.describe() + ": " + why;
        return false;
    }
    return true;
}

void CommandConnection::lose_locked(const std::string &why) {
    report_failure("command connection lost", why);
    context_.reset();
    selected_db_ = 0;
}

bool CommandConnection::run(int32_t db, const std::vector<std::string> &commands,
                            std::vector<ReplyPtr> &replies, std::chrono::milliseconds timeout,
                            std::string &why) {
    replies.clear();
    const std::lock_guard lock(mutex_);
    if (!usable_locked(why)) {
        return false;
    }
    if (db < 0 || (databases_ > 0 && db >= databases_)) {
        why = "no database " + std::to_string(db) + " on the server";
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
    const Deadline deadline(timeout);
    if (!flush_output(context, deadline, why)) {
        lose_locked(why);
        return false;
    }
    bool selected = true;
    if (select) {
        const ReplyPtr reply = read_reply(context, deadline, why);
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
        ReplyPtr reply = read_reply(context, deadline, why);
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

ReplyPtr run_one(int32_t db, const std::string &command, std::chrono::milliseconds timeout,
                 std::string &why) {
    std::vector<ReplyPtr> replies;
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
    const std::string command(text, static_cast<size_t>(length));
    redisFreeCommand(text);
    const auto timeout =
        timeout_ms > 0 ? std::chrono::milliseconds(timeout_ms) : kDefaultCommandTimeout;
    std::string why;
    const ReplyPtr reply = run_one(db, command, timeout, why);
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

// wait and flags are accepted for the vendor library's signature; the host
// library always waits for the reply, which is what wait 1 asks, and leaves
// no reply behind on the shared connection.
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
