// SPDX-License-Identifier: BSD-3-Clause
// show, check and sync: the commands that read the databases back.
#include <chrono>
#include <cstdio>
#include <thread>

#include "args.h"
#include "check.h"
#include "commands.h"
#include "ports.h"
#include "show.h"
#include "wire/key_families.h"
#include "wire/keys.h"

namespace {

// [--json] and nothing else.
bool json_flag(const tool_context &t, bool *json, std::string *why) {
    *json = false;
    for (const std::string &a : t.args) {
        if (a == "--json") {
            *json = true;
        } else {
            *why = "ARGUMENT \"" + a + "\" is not --json";
            return false;
        }
    }
    return true;
}

// Connects and reads both databases; a status other than EXIT_FINE on failure.
int snapshot_of(const tool_context &t, snapshot *s) {
    std::string why;
    if (!ports_init(&why)) {
        return fail(t, EXIT_CONNECT, why);
    }
    const auto conn = connect_or_report(t);
    if (!conn) {
        return EXIT_CONNECT;
    }
    if (!read_snapshot(*conn, s)) {
        return lost(t, *conn);
    }
    return EXIT_FINE;
}

// The start of show and check: the --json flag, then both databases read.
int read_both_databases(const tool_context &t, bool *json, snapshot *s) {
    std::string why;
    if (!json_flag(t, json, &why)) {
        return fail(t, EXIT_USAGE, why);
    }
    return snapshot_of(t, s);
}

} // namespace

int cmd_show(const tool_context &t) {
    bool json = false;
    snapshot s;
    if (const int status = read_both_databases(t, &json, &s); status != EXIT_FINE) {
        return status;
    }
    const std::string out = json ? show_json(s) : show_text(s);
    std::fwrite(out.data(), 1, out.size(), stdout);
    return EXIT_FINE;
}

int cmd_check(const tool_context &t) {
    bool json = false;
    snapshot s;
    if (const int status = read_both_databases(t, &json, &s); status != EXIT_FINE) {
        return status;
    }
    const std::vector<finding> found = audit(s);
    const std::string out = json ? findings_json(found) : findings_text(found);
    std::fwrite(out.data(), 1, out.size(), stdout);
    return found.empty() ? EXIT_FINE : EXIT_FOUND;
}

// The load-complete marker is copied to database 0 only after everything
// written before it has been handled: once the copy is there, the daemon
// has caught up.
int cmd_sync(const tool_context &t) {
    uint32_t timeout_s = 10;
    std::string why;
    const auto &a = t.args;
    if (!a.empty()) {
        if (a[0] != "--timeout" || a.size() != 2) {
            return fail(t, EXIT_USAGE,
                        a[0] != "--timeout" ? "ARGUMENT \"" + a[0] + "\" is not --timeout"
                                            : "usage: sync [--timeout SECONDS]");
        }
        if (!arg_number("SECONDS", a[1], 1, 3600, &timeout_s, &why)) {
            return fail(t, EXIT_USAGE, why);
        }
    }
    const auto conn = connect_or_report(t);
    if (!conn) {
        return EXIT_CONNECT;
    }
    const std::string key = family_key(key_family::data_end).c_str();
    // A value neither copy holds yet.
    auto number = [](const std::optional<std::string> &v) {
        long long n = 0;
        if (v && std::sscanf(v->c_str(), "%lld", &n) != 1) {
            n = 0;
        }
        return n;
    };
    long long next = std::max(number(conn->get(DB_CONFIG, key)), number(conn->get(DB_STATE, key)));
    next = next >= 0x7fffffff || next < 0 ? 1 : next + 1;
    const std::string value = std::to_string(next);
    if (!conn->set(DB_CONFIG, key, value)) {
        return lost(t, *conn);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout_s);
    while (true) {
        const auto copy = conn->get(DB_STATE, key);
        if (conn->failed()) {
            return lost(t, *conn);
        }
        if (copy == value) {
            return EXIT_FINE;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return fail(t, EXIT_FOUND,
                        "the daemon did not copy the load-complete marker " + value + " within " +
                            std::to_string(timeout_s) + " s: is it running?");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}
