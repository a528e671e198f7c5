// SPDX-License-Identifier: BSD-3-Clause
// Where the switch's redis-server is and who we are to it, for everything
// that talks to it: the bus library, vvlanctl and the tests' own client.
// Images and scripts set the same variables for all of them, so they are
// read here once:
//
//   TUKREDIS_SOCKET         a Unix socket path; wins when set
//   TUKREDIS_HOST           a TCP host (127.0.0.1 when unset)
//   TUKREDIS_PORT           a TCP port (6379 when unset)
//   TUKREDIS_USER           the ACL user to authenticate as (the server's
//                           default user when unset)
//   TUKREDIS_PASSWORD_FILE  a file whose first line is the password; refused
//                           when its group or others may read it
//   TUKREDIS_PASSWORD       the password itself, when there is no file
//
// and the TUKREDIS_TLS* variables of tls.h. An empty variable counts as unset. Without a password
// nothing is sent: a server without authentication needs none. The password never comes from the
// daemon's command line (it has none; a command line is visible to every user in /proc).
#pragma once

#include <hiredis/hiredis.h>

#include "tls.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace conn_settings {

inline constexpr const char *DEFAULT_HOST = "127.0.0.1";
inline constexpr int DEFAULT_PORT = 6379;

struct server_address {
    std::string socket_path; // wins when not empty
    std::string host;
    int port = 0;
    tls_settings tls; // TCP only

    // The socket path, or host:port with an IPv6 host in brackets (and
    // " with TLS").
    std::string describe() const;

    static server_address unix_socket(std::string path) {
        server_address a;
        a.socket_path = std::move(path);
        return a;
    }
};

// What a program's own command line said; an empty field was not given.
struct address_options {
    std::string socket_path;
    std::string host;
    std::string port;
    bool tls = false;       // asked for TLS (--tls, rediss://)
    tls_settings tls_files; // its non-empty fields win over the environment's
    bool insecure = false;  // no verification of the server's certificate

    static address_options where(std::string socket_path, std::string host, std::string port) {
        address_options o;
        o.socket_path = std::move(socket_path);
        o.host = std::move(host);
        o.port = std::move(port);
        return o;
    }
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

// Who we are: no password, no AUTH.
struct credentials {
    std::string user; // empty: the server's default user
    std::string password;
};

// TUKREDIS_USER, and TUKREDIS_PASSWORD_FILE or else TUKREDIS_PASSWORD. False
// with why when the file cannot be read or others may read it.
bool credentials_from_environment(credentials &out, std::string &why);

// The first line of path, without its line end. Refused, with why, when the
// file's group or others may read it or it is not a regular file.
bool read_password_file(const std::string &path, std::string &password, std::string &why);

// AUTH [user] password, to send before anything else on a connection.
std::vector<std::string> auth_command(const credentials &who);

// One line for a refused AUTH or a command refused for want of it (NOAUTH,
// WRONGPASS, NOPERM, or an AUTH the server cannot take), naming the cause
// and what to set: settings names them for the program at hand. Empty when
// reply is no such refusal.
std::string auth_refusal(std::string_view reply, const credentials &who, std::string_view settings);

// What a redis-cli style URL says: redis://[user[:password]@]host[:port]
// (an IPv6 host in brackets), the same with rediss:// for TLS, or
// unix://[user[:password]@]/socket/path.
struct url_parts {
    address_options where;
    credentials who;
};
// False with why for another scheme, a missing host or path, a bad port, or
// a database number (the programs here choose their databases themselves).
bool parse_url(std::string_view url, url_parts &out, std::string &why);

// A blocking hiredis connection, made within connect_timeout, whose every
// later read and write gives up after io_timeout (a server that accepts and
// never answers must not hang a tool), over TLS when the address says so.
// Null with why on failure.
redisContext *connect_blocking(const server_address &address,
                               std::chrono::milliseconds connect_timeout,
                               std::chrono::milliseconds io_timeout, std::string &why);

// One command on a blocking connection, binary-safe arguments: the reply,
// or null when the connection failed (context->errstr says why).
redisReply *command_argv(redisContext *context, const std::vector<std::string> &argv);

// AUTH on a blocking connection, when who has a password. False with why
// (from auth_refusal) when the server refuses it or the connection fails.
bool authenticate_blocking(redisContext *context, const credentials &who, std::string_view settings,
                           std::string &why);

} // namespace conn_settings
