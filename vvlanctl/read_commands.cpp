// SPDX-License-Identifier: BSD-3-Clause
// show, check, metrics and sync: the commands that read the databases back.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "args.h"
#include "check.h"
#include "commands.h"
#include "metrics.h"
#include "output.h"
#include "ports.h"
#include "show.h"
#include "wire/key_families.h"
#include "wire/keys.h"

namespace {

// -j/--json anywhere among the arguments (or before the command); the rest
// are handed back.
std::vector<std::string> without_json(const tool_context &t, bool *json) {
    *json = t.json;
    std::vector<std::string> rest;
    for (const std::string &a : t.args) {
        if (a == "--json" || a == "-j") {
            *json = true;
        } else {
            rest.push_back(a);
        }
    }
    return rest;
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

// Every byte of the output, or the failed status: a full disk is an error,
// not a success with nothing printed, and a reader that went away ends the
// tool by SIGPIPE (write_output says which).
int print(const tool_context &, const std::string &out, int status, int failed) {
    return write_output(out) ? status : failed;
}

bool parse_show(const std::vector<std::string> &a, show_request *r, std::string *why) {
    if (a.empty()) {
        return true;
    }
    if (a[0] == "port" && a.size() == 2) {
        uint32_t ifx = 0;
        if (!arg_number("IFX", a[1], 0, MAX_IFX, &ifx, why)) {
            return false;
        }
        r->part = show_part::port;
        r->ifx = static_cast<int32_t>(ifx);
        return true;
    }
    if (a.size() == 1 && a[0] == "ouis") {
        r->part = show_part::ouis;
        return true;
    }
    if (a.size() == 1 && a[0] == "mac-vlan") {
        r->part = show_part::mac_vlan;
        return true;
    }
    if (a[0] == "port" || a[0] == "ouis" || a[0] == "mac-vlan") {
        *why = "usage: show [port IFX | ouis | mac-vlan] [-j|--json]";
    } else {
        *why = "ARGUMENT \"" + a[0] + "\" is not port, ouis, mac-vlan or --json";
    }
    return false;
}

// Writes a marker value neither copy holds yet and waits for the daemon's
// copy in database 0. The copy is made only after everything written before
// it was handled, so a copy proves a daemon that reads and writes.
enum class round_trip { answered, timed_out, lost };

round_trip marker_round_trip(connection &conn, std::chrono::milliseconds timeout,
                             std::string *value) {
    const std::string key = family_key(key_family::data_end).c_str();
    auto number = [](const std::optional<std::string> &v) {
        long long n = 0;
        if (v && std::sscanf(v->c_str(), "%lld", &n) != 1) {
            n = 0;
        }
        return n;
    };
    long long next = std::max(number(conn.get(DB_CONFIG, key)), number(conn.get(DB_STATE, key)));
    next = next >= 0x7fffffff || next < 0 ? 1 : next + 1;
    *value = std::to_string(next);
    if (!conn.set(DB_CONFIG, key, *value)) {
        return round_trip::lost;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        const auto copy = conn.get(DB_STATE, key);
        if (conn.failed()) {
            return round_trip::lost;
        }
        if (copy == *value) {
            return round_trip::answered;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return round_trip::timed_out;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// How long check --probe waits for the daemon's copy of the marker.
constexpr std::chrono::seconds PROBE_TIMEOUT{5};

} // namespace

int cmd_show(const tool_context &t) {
    bool json = false;
    const std::vector<std::string> rest = without_json(t, &json);
    show_request r;
    std::string why;
    if (!parse_show(rest, &r, &why)) {
        return fail(t, EXIT_USAGE, why);
    }
    snapshot s;
    if (const int status = snapshot_of(t, &s); status != EXIT_FINE) {
        return status;
    }
    return print(t, json ? show_json(s, r) : show_text(s, r), EXIT_FINE, EXIT_CONNECT);
}

// Statuses as monitoring plugins give them: whatever stops the check from
// deciding (usage, no server, no output) is UNKNOWN.
int cmd_check(const tool_context &t) {
    bool json = false;
    bool probe = false;
    for (const std::string &a : without_json(t, &json)) {
        if (a != "--probe") {
            return fail(t, CHECK_UNKNOWN, "ARGUMENT \"" + a + "\" is not --json or --probe");
        }
        probe = true;
    }
    std::string why;
    if (!ports_init(&why)) {
        return fail(t, CHECK_UNKNOWN, why);
    }
    const auto conn = connect_or_report(t);
    if (!conn) {
        return CHECK_UNKNOWN;
    }
    snapshot s;
    if (!read_snapshot(*conn, &s)) {
        lost(t, *conn);
        return CHECK_UNKNOWN;
    }
    std::vector<finding> found = audit(s);
    if (probe && s.presence.state == daemon_state::subscribed) {
        std::string value;
        const round_trip r = marker_round_trip(*conn, PROBE_TIMEOUT, &value);
        if (r == round_trip::lost) {
            lost(t, *conn);
            return CHECK_UNKNOWN;
        }
        if (r == round_trip::timed_out) {
            found.insert(found.begin(),
                         {"daemon_not_answering", severity::critical, std::nullopt,
                          "the daemon is subscribed but did not copy the load-complete marker " +
                              value + " within " + std::to_string(PROBE_TIMEOUT.count()) + " s",
                          "restart the daemon (systemctl restart dov_vvlan), then vvlanctl sync"});
        }
    }
    const int status = check_status(found);
    return print(t, json ? findings_json(found, s) : findings_text(found), status, CHECK_UNKNOWN);
}

int cmd_metrics(const tool_context &t) {
    if (!t.args.empty()) {
        return fail(t, EXIT_USAGE, "ARGUMENT \"" + t.args[0] + "\": metrics takes none");
    }
    snapshot s;
    if (const int status = snapshot_of(t, &s); status != EXIT_FINE) {
        return status;
    }
    return print(t, metrics_text(s, audit(s)), EXIT_FINE, EXIT_CONNECT);
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
    std::string value;
    switch (marker_round_trip(*conn, std::chrono::seconds(timeout_s), &value)) {
    case round_trip::answered:
        return EXIT_FINE;
    case round_trip::lost:
        return lost(t, *conn);
    case round_trip::timed_out:
        break;
    }
    return fail(t, EXIT_FOUND,
                "the daemon did not copy the load-complete marker " + value + " within " +
                    std::to_string(timeout_s) + " s: is it running?");
}
