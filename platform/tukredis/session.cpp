// SPDX-License-Identifier: BSD-3-Clause
#include "session.h"

#include <cstring>
#include <thread>

#include "api_guard.h"
#include "command.h"
#include "conn.h"
#include "log.h"
#include "stats.h"

namespace tukredis {
namespace {

constexpr std::chrono::milliseconds CONNECT_TIMEOUT{2000};

// The daemon's loop calls tukredis_db_connect again as soon as a session ends.
// A session shorter than this (a server that accepts and then drops us, a
// refused subscription) therefore keeps the back-off running across calls
// instead of starting over, which would make the loop spin.
constexpr std::chrono::milliseconds SHORT_SESSION{1000};
// How often a retry run that goes on says so again.
constexpr std::chrono::seconds STILL_FAILING_REPORT{60};

bool valid_row(const tukredis_sub_row &row) {
    return row.handler != nullptr &&
           std::memchr(row.pattern, '\0', sizeof row.pattern) != nullptr && row.pattern[0] != '\0';
}

bool try_connect(std::string &where, std::string &why) {
    server_address address;
    if (!conn_settings::from_environment(address, why)) {
        where = "the server";
        return false;
    }
    where = address.describe();
    context_ptr subscription = open_bus_connection(address, CONNECT_TIMEOUT, why);
    if (!subscription) {
        return false;
    }
    if (!command_connection().connect(address, why)) {
        return false;
    }
    // Everything after this reads pmessages and confirmations; the keyspace
    // flags were settled above with ordinary replies.
    read_into(subscription.get(), &session().frame);
    session().subscription = std::move(subscription);
    return true;
}

} // namespace

session_state &session() {
    static session_state *const instance = new session_state;
    return *instance;
}

void close_subscription() {
    session_state &s = session();
    s.subscription.reset();
    s.subscribed = false;
    s.early.clear();
}

void lose_subscription(const std::string &why) {
    if (session().subscription) {
        report("connection lost: %s", why.c_str());
    }
    close_subscription();
}

void session_reset() {
    session_state &s = session();
    s = session_state{};
}

} // namespace tukredis

using namespace tukredis;

int32_t tukredis_init(const tukredis_sub_row *table, int32_t rows, tukredis_resync_cb resync,
                      int32_t flags) {
    (void)flags;
    return c_entry<int32_t>(-1, [&]() -> int32_t {
        // Before anything else: the caller may go on without the bus, but
        // never with a SIGPIPE that kills it.
        ignore_sigpipe();
        if (table == nullptr || rows <= 0) {
            report("tukredis_init: no subscription table");
            return -1;
        }
        for (int32_t i = 0; i < rows; ++i) {
            if (!valid_row(table[i])) {
                report("tukredis_init: row %d has no handler or no zero-terminated pattern",
                       static_cast<int>(i));
                return -1;
            }
        }
        session_state &s = session();
        s.table = table;
        s.rows = rows;
        s.resync = resync;
        return 0;
    });
}

int32_t tukredis_db_connect(void) {
    return c_entry<int32_t>(-1, []() -> int32_t {
        session_state &s = session();
        close_subscription();
        command_connection().drop();

        if (s.connected_before && steady_clock::now() - s.last_connected < SHORT_SESSION) {
            std::this_thread::sleep_for(s.backoff.next());
        } else {
            s.backoff.reset();
        }
        steady_clock::time_point reported{};
        for (unsigned attempt = 1;; ++attempt) {
            count(stats().connect_attempts);
            std::string where;
            std::string why;
            if (try_connect(where, why)) {
                if (attempt == 1) {
                    report("connected to %s", where.c_str());
                } else {
                    report("connected to %s after %u attempts", where.c_str(), attempt);
                }
                if (s.connected_before) {
                    count(stats().reconnections);
                }
                s.connected_before = true;
                s.last_connected = steady_clock::now();
                return 0;
            }
            // One line when a retry run starts, then at most one a minute
            // while it lasts: the server may stay down, or refuse our
            // password, for a long time.
            const steady_clock::time_point now = steady_clock::now();
            if (attempt == 1) {
                report("cannot connect to %s: %s; retrying", where.c_str(), why.c_str());
                reported = now;
            } else if (now - reported >= STILL_FAILING_REPORT) {
                report("still cannot connect to %s after %u attempts: %s", where.c_str(), attempt,
                       why.c_str());
                reported = now;
            }
            close_subscription();
            command_connection().drop();
            std::this_thread::sleep_for(s.backoff.next());
        }
    });
}
