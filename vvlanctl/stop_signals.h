// SPDX-License-Identifier: BSD-3-Clause
// The signals that end a command that runs until told (watch, record,
// replay): they set a flag, without SA_RESTART, so that a blocked poll
// returns at once and the command ends as if its work were done.
#pragma once

// SIGINT and SIGTERM, and SIGHUP when hangup (a recorder left running in a
// terminal that closes stops cleanly).
void catch_stop_signals(bool hangup = false);
bool stop_requested();
