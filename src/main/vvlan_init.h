// SPDX-License-Identifier: BSD-3-Clause
// One-time start-up: single-instance guard, health agent, debug level,
// device manager, the auto-port lock and the default aging time.
#pragma once

#include <cstdint>

// The locked pid file stays open for the life of the process: the lock ends
// with it. -1 until vvlan_init has opened the file.
extern int g_pid_fd;

int32_t ham_init();
int32_t vvlan_init();
