// SPDX-License-Identifier: BSD-3-Clause
#include "app/load_complete_marker.h"

#include "bus/bus_write.h"
#include "handler/handler_steps.h"
#include "wire/keys.h"

void set_data_end_redis(int32_t value) {
    TRACE_INFO("set_data_end_redis start");
    const key_buf key = family_key(key_family::data_end);
    TRACE_INFO("key=%s", key.c_str());
    bus_set_int(DB_STATE, key.c_str(), value);
    // The end lines carry the daemon's own prefix, unlike the start lines.
    TRACE_INFO("dov_vvlan_set_data_end_redis end");
}

// Only a written marker is copied: a delete or an expiry is refused, so the
// copy in database 0 stays. The code is tested before the record is traced.
int32_t get_data_end_pmsg_f(tukredis_pmsg *pmsg) {
    trace_start(TRACE_SITE);
    if (pmsg_missing(TRACE_SITE, pmsg)) {
        return -4;
    }
    if (pmsg->cmd != TUKREDIS_CMD_SET) {
        TRACE_ERR("cmd=%d", pmsg->cmd);
        return -4;
    }
    TRACE_PMSG(pmsg);
    int32_t value = 0;
    if (tukredis_get_key_reply_intval(pmsg->reply, &value, 10) != 0) {
        TRACE_ERR("tukredis_get_key_reply_intval error");
        return -11;
    }
    set_data_end_redis(value);
    TRACE_INFO("dov_vvlan_set_data_end_pmsg_f end");
    return 0;
}
