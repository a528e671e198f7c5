// SPDX-License-Identifier: BSD-3-Clause
// Puts every process-wide table of the daemon back to its start-up state,
// stopping an aging thread that a test left running.
#pragma once

namespace fake {

void stop_aging_thread();
void reset_daemon_state();

// Everything: the daemon's tables, the recording fakes, the trace, the POSIX
// faults; the debug level is 32 and the clock controlled.
void reset_all();

} // namespace fake
