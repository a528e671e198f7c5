// SPDX-License-Identifier: BSD-3-Clause
#include "conn.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "log.h"

namespace tukredis {
namespace {

constexpr const char *kDefaultHost = "127.0.0.1";
constexpr int kDefaultPort = 6379;

const char *env_or_null(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

bool parse_port(const char *text, int &port) {
    char *end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 1 || value > 65535) {
        return false;
    }
    port = static_cast<int>(value);
    return true;
}

// hiredis connects asynchronously; completion shows as writability, and the
// outcome is in SO_ERROR.
bool wait_connected(redisContext *context, std::chrono::milliseconds timeout, std::string &why) {
    const Deadline deadline(timeout);
    if (!wait_ready(context->fd, POLLOUT, deadline, why)) {
        why = "connect: " + why;
        return false;
    }
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(context->fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        error = errno;
    }
    if (error != 0) {
        why = std::string("connect: ") + std::strerror(error);
        return false;
    }
    return true;
}

} // namespace

std::string Address::describe() const {
    if (!socket_path.empty()) {
        return socket_path;
    }
    return host + ":" + std::to_string(port);
}

bool address_from_env(Address &address, std::string &why) {
    address = Address{};
    if (const char *path = env_or_null("TUKREDIS_SOCKET")) {
        // hiredis would silently cut a path that does not fit sun_path.
        if (std::strlen(path) >= sizeof(sockaddr_un::sun_path)) {
            why = "TUKREDIS_SOCKET is longer than a socket path may be";
            return false;
        }
        address.socket_path = path;
        return true;
    }
    const char *host = env_or_null("TUKREDIS_HOST");
    address.host = host != nullptr ? host : kDefaultHost;
    address.port = kDefaultPort;
    if (const char *port = env_or_null("TUKREDIS_PORT")) {
        if (!parse_port(port, address.port)) {
            why = std::string("TUKREDIS_PORT \"") + port + "\" is not a port number";
            return false;
        }
    }
    return true;
}

ContextPtr open_connection(const Address &address, std::chrono::milliseconds timeout,
                           std::string &why) {
    ignore_default_sigpipe();
    const bool tcp = address.socket_path.empty();
    ContextPtr context(tcp ? redisConnectNonBlock(address.host.c_str(), address.port)
                           : redisConnectUnixNonBlock(address.socket_path.c_str()));
    if (!context) {
        why = "out of memory";
        return nullptr;
    }
    if (context->err != 0) {
        why = context_error(context.get());
        return nullptr;
    }
    if (!wait_connected(context.get(), timeout, why)) {
        return nullptr;
    }
    if (tcp && redisEnableKeepAlive(context.get()) != REDIS_OK) {
        why = "keep-alive: " + context_error(context.get());
        return nullptr;
    }
    return context;
}

void ignore_sigpipe() noexcept {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    sigemptyset(&action.sa_mask);
    sigaction(SIGPIPE, &action, nullptr);
}

void ignore_default_sigpipe() noexcept {
    struct sigaction current {};
    if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
        ignore_sigpipe();
    }
}

ContextPtr open_bus_connection(const Address &address, std::chrono::milliseconds timeout,
                               std::string &why) {
    ContextPtr context = open_connection(address, timeout, why);
    if (!context) {
        return nullptr;
    }
    if (!ensure_notify_flags(context.get(), Deadline(timeout), why)) {
        return nullptr;
    }
    return context;
}

} // namespace tukredis
