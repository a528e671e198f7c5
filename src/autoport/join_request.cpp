// SPDX-License-Identifier: BSD-3-Clause
#include "autoport/join_request.h"

#include "bus/bus_write.h"
#include "trace/trace.h"
#include "wire/keys.h"
#include "wire/values.h"

// Used by the main thread (joins) and by the aging thread (removals). The
// key lives in database 1, so the daemon's own requests never come back to
// the learning handler, which listens in database 0.
void set_mac2ce_global(uint32_t ifx, int add) {
    TRACE_INFO("set_mac2ce_global start");
    TRACE_INFO("ifx=%d", static_cast<int>(ifx));
    const key_buf key = join_request_key(static_cast<int32_t>(ifx));
    TRACE_INFO("key=%s", key.c_str());
    if (add != 0) {
        const auto value = join_request_codec::encode(ifx);
        bus_set_raw(DB_CONFIG, key.c_str(), value.data(), value.size());
        TRACE_INFO("TUKREDIS_SET end");
    } else {
        bus_del(DB_CONFIG, key.c_str());
        TRACE_INFO("TUKREDIS_DEL end");
    }
    TRACE_INFO("set_mac2ce_global end");
}
