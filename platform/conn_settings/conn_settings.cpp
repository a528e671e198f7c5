// SPDX-License-Identifier: BSD-3-Clause
#include "conn_settings.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cstdlib>

namespace conn_settings {
namespace {

const char *env_or_null(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

bool socket_path_fits(std::string_view path) {
    return path.size() < sizeof(sockaddr_un::sun_path);
}

timeval to_timeval(std::chrono::milliseconds timeout) {
    return timeval{static_cast<time_t>(timeout.count() / 1000),
                   static_cast<suseconds_t>((timeout.count() % 1000) * 1000)};
}

} // namespace

std::string server_address::describe() const {
    if (!socket_path.empty()) {
        return socket_path;
    }
    const bool ipv6 = host.find(':') != std::string::npos;
    return (ipv6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

bool parse_port(std::string_view text, int &port) {
    if (text.empty() || text.size() > 5) {
        return false;
    }
    int value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    if (value < 1 || value > 65535) {
        return false;
    }
    port = value;
    return true;
}

bool resolve(const address_options &given, server_address &out, std::string &why) {
    server_address a;
    const char *env_socket = env_or_null("TUKREDIS_SOCKET");
    if (!given.socket_path.empty()) {
        a.socket_path = given.socket_path;
    } else if (given.host.empty() && given.port.empty() && env_socket != nullptr) {
        a.socket_path = env_socket;
    }
    if (!a.socket_path.empty()) {
        if (!socket_path_fits(a.socket_path)) {
            why = (given.socket_path.empty() ? "TUKREDIS_SOCKET" : "the socket path") +
                  std::string(" is longer than a socket path may be");
            return false;
        }
        out = a;
        return true;
    }

    const char *env_host = env_or_null("TUKREDIS_HOST");
    a.host = !given.host.empty() ? given.host : env_host != nullptr ? env_host : DEFAULT_HOST;
    a.port = DEFAULT_PORT;
    if (!given.port.empty()) {
        if (!parse_port(given.port, a.port)) {
            why = "PORT \"" + given.port + "\" is not a port number (1..65535)";
            return false;
        }
    } else if (const char *env_port = env_or_null("TUKREDIS_PORT")) {
        if (!parse_port(env_port, a.port)) {
            why = std::string("TUKREDIS_PORT \"") + env_port + "\" is not a port number (1..65535)";
            return false;
        }
    }
    out = a;
    return true;
}

redisContext *connect_blocking(const server_address &address,
                               std::chrono::milliseconds connect_timeout,
                               std::chrono::milliseconds io_timeout, std::string &why) {
    const timeval tv = to_timeval(connect_timeout);
    redisContext *context = address.socket_path.empty()
                                ? redisConnectWithTimeout(address.host.c_str(), address.port, tv)
                                : redisConnectUnixWithTimeout(address.socket_path.c_str(), tv);
    if (context == nullptr) {
        why = "out of memory";
        return nullptr;
    }
    if (context->err != 0 || redisSetTimeout(context, to_timeval(io_timeout)) != REDIS_OK) {
        why = context->errstr;
        redisFree(context);
        return nullptr;
    }
    return context;
}

} // namespace conn_settings
