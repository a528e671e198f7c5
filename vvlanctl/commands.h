// SPDX-License-Identifier: BSD-3-Clause
// The commands of vvlanctl and what they share: the exit statuses, the
// server's address and the way each reports a failure.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "connection.h"

// Exit statuses, the same for every command.
inline constexpr int EXIT_FINE = 0;    // success; check found nothing
inline constexpr int EXIT_FOUND = 1;   // check found something; sync was not answered in time
inline constexpr int EXIT_USAGE = 2;   // bad usage or input: nothing was written
inline constexpr int EXIT_CONNECT = 3; // no usable connection to the server

struct tool_context {
    std::string command; // as typed, for messages
    std::vector<std::string> args;
    server_address address;
    conn_settings::credentials who; // AUTH sent when it has a password
    bool json = false;              // -j/--json before the command
};

// "vvlanctl: <command>: <why>" on standard error; returns status.
int fail(const tool_context &t, int status, const std::string &why);
// Opens the connection, or reports it and leaves null (status EXIT_CONNECT).
std::unique_ptr<connection> connect_or_report(const tool_context &t);
// Reports a connection that failed after it was opened; EXIT_CONNECT.
int lost(const tool_context &t, const connection &c);

int cmd_show(const tool_context &t);
int cmd_check(const tool_context &t);
int cmd_watch(const tool_context &t);
// set, unset, add, del, learn, age, specify, unspecify, debug.
int cmd_write(const tool_context &t);
int cmd_sync(const tool_context &t);
int cmd_metrics(const tool_context &t);
