// SPDX-License-Identifier: BSD-3-Clause
// Opening connections to the server.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "conn_settings.h"
#include "io.h"

namespace tukredis {

// Where the server is (conn_settings), read from the environment at every
// connect so that a test (or an operator) can move the daemon to another
// server without restarting it.
using server_address = conn_settings::server_address;

// A non-blocking connection, connected within timeout. TCP connections get
// keep-alive so that a vanished peer is noticed by the kernel too.
context_ptr open_connection(const server_address &address, std::chrono::milliseconds timeout,
                            std::string &why);

// The settings to fix when the server refuses who we are.
inline constexpr std::string_view AUTH_SETTINGS = "TUKREDIS_USER and TUKREDIS_PASSWORD_FILE";

// AUTH as who, when who has a password. False with a line that names the
// cause and the settings to fix when the server refuses it.
bool authenticate(redisContext *context, const conn_settings::credentials &who,
                  const io_deadline &deadline, std::string &why);

// The connection every part of the library starts from: open, authenticate
// when a password is configured, then make sure the server publishes the
// keyspace events the daemon depends on. Null on failure, with why.
context_ptr open_bus_connection(const server_address &address, std::chrono::milliseconds timeout,
                                std::string &why);

// The keyspace-event flags this library needs and the server lacks, given the
// server's current flags ("" when nothing is missing). 'A' in current stands
// for all the class flags.
std::string missing_notify_flags(std::string_view current);

// Reads notify-keyspace-events and adds what is missing, removing nothing. A
// refused CONFIG is reported and tolerated: the server may have CONFIG
// disabled and be configured by hand. False only when the connection failed.
bool ensure_notify_flags(redisContext *context, const io_deadline &deadline, std::string &why);

// A write to a socket the peer closed must fail with EPIPE rather than kill
// the daemon. tukredis_init ignores SIGPIPE outright; a connection opened
// without it only replaces the default action, so that a handler the program
// installed itself stays.
void ignore_sigpipe() noexcept;
void ignore_default_sigpipe() noexcept;

} // namespace tukredis
