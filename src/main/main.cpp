// SPDX-License-Identifier: BSD-3-Clause
// dov_vvlan: the voice VLAN control daemon. No arguments, no configuration
// file: every input and output is a key in the switch's database.
#include "app/resync_scan.h"
#include "app/subscription_table.h"
#include "main/vvlan_init.h"
#include "trace/trace.h"
#include "tukredis.h"

#include <cstdio>

// On a failed start-up the process exits with the failed step's code (its
// low eight bits: 245 for -11). Otherwise it serves the bus for ever; there
// is no orderly shutdown, the pid-file lock ends with the process.
int main() {
    // Line-buffered even on a pipe or a file (init systems, the journal), so
    // each trace line reaches its reader when printed, not in 4 KiB bursts
    // lost when the process is killed; BusyBox images have no stdbuf.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const int32_t ret = vvlan_init();
    if (ret != 0) {
        TRACE_ERR("vvlan_init failed ret = %d", ret);
        return ret;
    }
    tukredis_init(g_sub_table.data(), SUB_TABLE_ROWS, check_db_validate, 0);
    // Pacing between attempts is the bus library's: it backs off while the
    // server is unreachable.
    for (;;) {
        tukredis_db_connect();
        tukredis_db_psubscrible();
        tukredis_pubsub();
    }
}
