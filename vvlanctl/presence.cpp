// SPDX-License-Identifier: BSD-3-Clause
#include "presence.h"

#include <charconv>
#include <ctime>

namespace {

// The value of "field=" in one CLIENT LIST line, or empty.
std::string_view field(std::string_view line, std::string_view name) {
    std::size_t at = 0;
    while (at < line.size()) {
        std::size_t end = line.find(' ', at);
        if (end == std::string_view::npos) {
            end = line.size();
        }
        const std::string_view pair = line.substr(at, end - at);
        if (pair.size() > name.size() && pair.substr(0, name.size()) == name &&
            pair[name.size()] == '=') {
            return pair.substr(name.size() + 1);
        }
        at = end + 1;
    }
    return {};
}

std::optional<int64_t> integer(std::string_view text) {
    int64_t v = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return v;
}

bool is_bus_name(std::string_view name) {
    return name.substr(0, BUS_CLIENT_NAME_PREFIX.size()) == BUS_CLIENT_NAME_PREFIX;
}

// The server's clock: TIME's seconds, or ours when it is refused.
int64_t server_now(connection &conn) {
    const reply_ptr r(conn_settings::command_argv(conn.raw(), {"TIME"}));
    if (r && r->type == REDIS_REPLY_ARRAY && r->elements == 2 &&
        r->element[0]->type == REDIS_REPLY_STRING) {
        if (const auto v = integer({r->element[0]->str, r->element[0]->len})) {
            return *v;
        }
    }
    return static_cast<int64_t>(std::time(nullptr));
}

} // namespace

daemon_presence presence_of_client_list(std::string_view text, int64_t now_unix) {
    daemon_presence p;
    p.state = daemon_state::absent;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t end = text.find('\n', at);
        if (end == std::string_view::npos) {
            end = text.size();
        }
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        const std::string_view name = field(line, "name");
        const auto psub = integer(field(line, "psub"));
        // Another tool (vvlanctl watch, redis-cli) may subscribe too, but
        // not to the daemon's exact count under a name other than ours.
        const bool named_other = !name.empty() && !is_bus_name(name);
        if (psub == DAEMON_PATTERNS && !named_other) {
            p.state = daemon_state::subscribed;
            if (const auto age = integer(field(line, "age"))) {
                p.since_unix = now_unix - *age;
            }
            p.name = name.empty() ? std::nullopt : std::optional<std::string>(name);
            p.address = std::string(field(line, "addr"));
            return p;
        }
        if (is_bus_name(name) && p.state == daemon_state::absent) {
            p.state = daemon_state::connected;
            p.name = std::string(name);
            p.address = std::string(field(line, "addr"));
        }
    }
    return p;
}

daemon_presence read_presence(connection &conn) {
    const reply_ptr r(conn_settings::command_argv(conn.raw(), {"CLIENT", "LIST"}));
    if (!r || r->type != REDIS_REPLY_STRING) {
        daemon_presence p;
        p.refusal = !r                             ? std::string(conn.raw()->errstr)
                    : r->type == REDIS_REPLY_ERROR ? std::string(r->str, r->len)
                                                   : "CLIENT LIST: unexpected reply";
        return p;
    }
    return presence_of_client_list({r->str, r->len}, server_now(conn));
}

const char *daemon_state_name(daemon_state s) {
    switch (s) {
    case daemon_state::subscribed:
        return "subscribed";
    case daemon_state::connected:
        return "connected";
    case daemon_state::absent:
        return "absent";
    case daemon_state::unknown:
        break;
    }
    return "unknown";
}

std::string iso_utc(int64_t unix_seconds) {
    const auto t = static_cast<std::time_t>(unix_seconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}
