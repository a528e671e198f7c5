// SPDX-License-Identifier: BSD-3-Clause
// Whether the daemon is there, read from the server's client list: the
// published keys in database 0 carry no time-to-live and outlive the daemon,
// so only its connection says that it still follows the configuration.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "connection.h"
#include "wire/key_families.h"

// The patterns the daemon holds on its one subscription connection: one per
// declared subscription row.
constexpr int daemon_patterns() {
    int n = 0;
    for (const key_family_decl &f : KEY_FAMILIES) {
        n += f.sub_row != NO_ROW ? 1 : 0;
    }
    return n;
}
inline constexpr int DAEMON_PATTERNS = daemon_patterns();
// The name the host bus library gives its connections (CLIENT SETNAME); a
// vendor's library may give none.
inline constexpr std::string_view BUS_CLIENT_NAME_PREFIX = "tukredis";

enum class daemon_state {
    subscribed, // a connection holds the daemon's patterns
    connected,  // the bus library is connected, without them
    absent,     // neither
    unknown,    // the server refused the client list
};

struct daemon_presence {
    daemon_state state = daemon_state::unknown;
    std::optional<int64_t> since_unix;  // when the subscription was made
    std::optional<std::string> name;    // the connection's name, when given
    std::optional<std::string> address; // its peer, as the server shows it
    std::string refusal;                // why the state is unknown
};

// One CLIENT LIST, decided. Never poisons conn: a refusal (a renamed or
// denied CLIENT) gives daemon_state::unknown.
daemon_presence read_presence(connection &conn);
// The same decision over CLIENT LIST's text, with the server's clock.
daemon_presence presence_of_client_list(std::string_view text, int64_t now_unix);

const char *daemon_state_name(daemon_state s);
// Seconds since the epoch as "2026-11-24T00:45:01Z".
std::string iso_utc(int64_t unix_seconds);
