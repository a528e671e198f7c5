// SPDX-License-Identifier: BSD-3-Clause
#include "conn.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

#include "log.h"

namespace tukredis {
namespace {

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

ContextPtr open_connection(const server_address &address, std::chrono::milliseconds timeout,
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

ContextPtr open_bus_connection(const server_address &address, std::chrono::milliseconds timeout,
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
