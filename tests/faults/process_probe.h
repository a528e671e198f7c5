// SPDX-License-Identifier: BSD-3-Clause
// What a running process costs, read from /proc: CPU time, open file
// descriptors, threads.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

namespace faults {

// utime + stime of the whole process, in clock ticks.
long cpu_ticks(pid_t pid);
// Entries of /proc/<pid>/fd.
int open_fds(pid_t pid);
// Entries of /proc/<pid>/task.
int thread_count(pid_t pid);

// The share of one CPU the process used over a window (0.01 = 1%), while
// check() is called about every 100 ms (a test's liveness assertions).
double cpu_share_over(pid_t pid, std::chrono::milliseconds window,
                      const std::function<void()> &check);

} // namespace faults
