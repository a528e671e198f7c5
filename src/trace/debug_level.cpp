// SPDX-License-Identifier: BSD-3-Clause
#include "trace/debug_level.h"

#include <fcntl.h>
#include <unistd.h>

#include "trace/trace.h"

#ifndef DOV_VVLAN_SYSROOT
#define DOV_VVLAN_SYSROOT ""
#endif

namespace {
// Only the file's existence matters; its content is never read.
constexpr const char *DBG_MARKER_FILE = DOV_VVLAN_SYSROOT "/var/tmp/dov_vvlan_dbg";
} // namespace

std::atomic<uint32_t> dov_vvlan_dbg_level{0};

void dov_vvlan_set_dbg(uint32_t level) {
    dov_vvlan_dbg_level.store(level, std::memory_order_relaxed);
}

// Start-up step: the marker file turns every trace on. A missing file leaves
// the word as it is and returns the open's result. /var/tmp is writable by
// everyone: a FIFO put there would block a plain read-only open for ever,
// inside start-up and holding the pid-file lock, so the open never waits. A
// FIFO or a device counts as present, as any file does.
int dov_vvlan_dbg_init() {
    const int fd = open(DBG_MARKER_FILE, O_RDONLY | O_NONBLOCK);
    if (fd < 0) {
        return fd;
    }
    dov_vvlan_set_dbg(DBG_ALL);
    return close(fd);
}

// Only a written key changes the level: a deleted or expiring key leaves it
// as it is, and traces nothing. Any integer is taken, 0 (silence) and
// negative values (their unsigned pattern) included.
int32_t dov_vvlan_dbg_pmsg_f(tukredis_pmsg *pmsg) {
    if (pmsg == nullptr) {
        TRACE_ERR("pmsg is null");
        return -4;
    }
    if (pmsg->cmd != TUKREDIS_CMD_SET) {
        return -4;
    }
    TRACE_PMSG(pmsg);
    int32_t value = 0;
    const int32_t rv = tukredis_get_key_reply_intval(pmsg->reply, &value, 10);
    if (rv != 0) {
        // The text names another table and the result is passed up as it
        // came; both are kept as they have always been.
        TRACE_ERR("get mac_vlan failed");
        return rv;
    }
    dov_vvlan_set_dbg(static_cast<uint32_t>(value));
    return 0;
}
