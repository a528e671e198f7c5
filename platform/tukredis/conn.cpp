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
    const io_deadline deadline(timeout);
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

context_ptr open_connection(const server_address &address, std::chrono::milliseconds timeout,
                            std::string &why) {
    ignore_default_sigpipe();
    const bool tcp = address.socket_path.empty();
    context_ptr context(tcp ? redisConnectNonBlock(address.host.c_str(), address.port)
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
    // The handshake is finished here, within the connect timeout. The round
    // trips that follow on every connection (AUTH, the event flags, the
    // database count) also read the session tickets a TLS 1.3 server sends
    // after it, so that the command connection's idle check never takes
    // them for the server closing.
    if (tcp && address.tls.enabled &&
        !conn_settings::start_tls(context.get(), address.tls, address.host, timeout, why)) {
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

bool authenticate(redisContext *context, const conn_settings::credentials &who,
                  const io_deadline &deadline, std::string &why) {
    if (who.password.empty()) {
        return true;
    }
    const std::vector<std::string> argv = conn_settings::auth_command(who);
    const reply_ptr reply =
        round_trip(context, std::vector<std::string_view>(argv.begin(), argv.end()), deadline, why);
    if (!reply) {
        return false;
    }
    if (reply->type == REDIS_REPLY_ERROR) {
        const std::string text(reply_text(reply.get()));
        why = conn_settings::auth_refusal(text, who, AUTH_SETTINGS);
        if (why.empty()) {
            why = "AUTH: " + text;
        }
        return false;
    }
    return true;
}

// Who we are is read with where the server is, at every connect, so that a
// changed password file is taken on the next connection.
context_ptr open_bus_connection(const server_address &address, std::chrono::milliseconds timeout,
                                std::string &why) {
    conn_settings::credentials who;
    if (!conn_settings::credentials_from_environment(who, why)) {
        return nullptr;
    }
    context_ptr context = open_connection(address, timeout, why);
    if (!context) {
        return nullptr;
    }
    // AUTH before anything else, on every connection, the subscription's
    // included.
    if (!authenticate(context.get(), who, io_deadline(timeout), why)) {
        return nullptr;
    }
    // Named, so that an operator's tools can tell the bus library's
    // connections in the server's client list. A server or user that
    // refuses CLIENT SETNAME leaves the connection unnamed, nothing worse.
    if (!round_trip(context.get(), {"CLIENT", "SETNAME", "tukredis"}, io_deadline(timeout), why)) {
        return nullptr;
    }
    if (!ensure_notify_flags(context.get(), io_deadline(timeout), why)) {
        return nullptr;
    }
    return context;
}

} // namespace tukredis
