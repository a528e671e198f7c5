// SPDX-License-Identifier: BSD-3-Clause
#include "main/vvlan_init.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "autoport/auto_port.h"
#include "ham_agent.h"
#include "libsdm.h"
#include "settings/vvlan_table.h"
#include "trace/debug_level.h"
#include "trace/trace.h"

#ifndef DOV_VVLAN_SYSROOT
#define DOV_VVLAN_SYSROOT ""
#endif

namespace {

constexpr const char *PID_FILE = DOV_VVLAN_SYSROOT "/var/run/dov_vvlan.pid";
// Its presence switches the exit-action registration off; content unread.
constexpr const char *HAM_OPT_OUT_FILE = DOV_VVLAN_SYSROOT "/data/dov_vvlan_ham.txt";

constexpr uint16_t DEFAULT_AGING_MINUTES = 1440; // one day

// The file is opened with O_TRUNC before the lock is tried, so a second
// instance empties the running one's pid file before it finds the lock
// taken. That order is kept as it has always been.
bool lock_pid_file() {
    const int fd = open(PID_FILE, O_RDWR | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
        return false;
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0; // the whole file, however long it grows
    if (fcntl(fd, F_SETLK, &lock) < 0) {
        // Only the lock-held errors close the descriptor; any other error
        // leaves it open, as it always has.
        if (errno == EACCES || errno == EAGAIN) {
            close(fd);
        }
        return false;
    }
    g_pid_fd = fd;
    char pid_text[64];
    std::memset(pid_text, 0, sizeof pid_text);
    std::snprintf(pid_text, sizeof pid_text, "%ld", static_cast<long>(getpid()));
    // Results ignored: a pid file that cannot be written does not stop the
    // daemon, the lock is what guards the single instance.
    const int truncated = ftruncate(fd, 0);
    const ssize_t written = write(fd, pid_text, std::strlen(pid_text));
    (void)truncated;
    (void)written;
    return true;
}

} // namespace

int g_pid_fd = -1;

int32_t ham_init() {
    const int32_t rv = ham_agent_init();
    if (rv != 0) {
        TRACE_ERR("ham_agent_init failed rv = %d", rv);
        return rv;
    }
    const int fd = open(HAM_OPT_OUT_FILE, O_RDWR, 0666);
    if (fd >= 0) {
        close(fd);
        return 0;
    }
    return reg_process_exit_action(0, 2);
}

// Traces before the debug marker is read (step "dov_vvlan_dbg_init" below)
// are filtered by the still-zero level: with the marker file present, the
// output starts at "vvlan_init end".
int32_t vvlan_init() {
    TRACE_INFO("vvlan_init start");
    if (!lock_pid_file()) {
        TRACE_ERR("<warning> vvlan process has already run");
        return -11;
    }
    int32_t ret = ham_init();
    if (ret != 0) {
        TRACE_ERR("ham_init failed ret = %d", ret);
        return ret;
    }
    dov_vvlan_dbg_init();
    ret = libsdm_init("dov_vvlan", 0);
    if (ret != 0) {
        TRACE_ERR("libsdm_init failed ret = %d", ret);
        return ret;
    }
    ret = pthread_mutex_init(&g_flag_lock, nullptr);
    if (ret != 0) {
        TRACE_ERR("pthread_mutex_init failed ret = %d", ret);
        return ret;
    }
    g_vvlan_table.aging_minutes = DEFAULT_AGING_MINUTES;
    TRACE_INFO("vvlan_init end");
    return 0;
}
