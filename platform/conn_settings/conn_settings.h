// SPDX-License-Identifier: BSD-3-Clause
// Where the switch's redis-server is, for everything that talks to it: the
// bus library, vvlanctl and the tests' own client. Images and scripts set
// the same three variables for all of them, so they are read here once:
//
//   TUKREDIS_SOCKET  a Unix socket path; wins when set
//   TUKREDIS_HOST    a TCP host (127.0.0.1 when unset)
//   TUKREDIS_PORT    a TCP port (6379 when unset)
//
// An empty variable counts as unset.
#pragma once

#include <hiredis/hiredis.h>

#include <chrono>
#include <string>
#include <string_view>

namespace conn_settings {

inline constexpr const char *DEFAULT_HOST = "127.0.0.1";
inline constexpr int DEFAULT_PORT = 6379;

struct server_address {
    std::string socket_path; // wins when not empty
    std::string host;
    int port = 0;

    // The socket path, or host:port with an IPv6 host in brackets.
    std::string describe() const;
};

// What a program's own command line said; an empty field was not given.
struct address_options {
    std::string socket_path;
    std::string host;
    std::string port;
};

// The address from the options, then the environment, then the defaults.
// A socket given on the command line wins over everything; a host or port
// given there wins over the environment's socket, as an operator who names a
// host means that host. False with why for a port that is no port number or
// a socket path longer than a socket address holds (hiredis would cut it).
bool resolve(const address_options &given, server_address &out, std::string &why);

// The environment alone: what the daemon's bus library uses.
inline bool from_environment(server_address &out, std::string &why) {
    return resolve(address_options{}, out, why);
}

// A decimal port number, 1 to 65535.
bool parse_port(std::string_view text, int &port);

// A blocking hiredis connection, made within connect_timeout, whose every
// later read and write gives up after io_timeout (a server that accepts and
// never answers must not hang a tool). Null with why on failure.
redisContext *connect_blocking(const server_address &address,
                               std::chrono::milliseconds connect_timeout,
                               std::chrono::milliseconds io_timeout, std::string &why);

} // namespace conn_settings
