// SPDX-License-Identifier: BSD-3-Clause
// The commands of vvlanctl and what they share: the exit statuses, the
// server's address and the way each reports a failure.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "connection.h"

// Exit statuses, one table for every command. check reads them as the
// monitoring plugins' OK, WARNING, CRITICAL and UNKNOWN, which Icinga,
// Nagios, Zabbix and Checkmk understand; the other commands share the
// meaning of 0 and 3 and use 1 for "understood but not done". A reader of
// the output that went away ends the tool by SIGPIPE, as any filter.
inline constexpr int EXIT_FINE = 0;     // success; check: OK
inline constexpr int EXIT_NOT_DONE = 1; // nothing to delete, a setting held by another value,
                                        // sync not answered in time
inline constexpr int EXIT_FOUND = 1;    // check: WARNING
inline constexpr int EXIT_CRITICAL = 2; // check: CRITICAL
inline constexpr int EXIT_UNKNOWN = 3;  // bad usage or input (nothing written), no usable
                                        // connection, an error writing the output
inline constexpr int EXIT_USAGE = EXIT_UNKNOWN;
inline constexpr int EXIT_CONNECT = EXIT_UNKNOWN;

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
// The flight recorder: record writes a recording of the keys and events.
int cmd_record(const tool_context &t);
// replay plays a recording to a daemon and compares what it made.
int cmd_replay(const tool_context &t);
int cmd_history(const tool_context &t);
