#include "bus/data_end.h"

#include "bus/bus_write.h"
#include "bus/key_buf.h"
#include "trace/trace.h"

void set_data_end_redis(int32_t value) {
    TRACE_INFO("set_data_end_redis start");
    const key_buf key = key_printf("%s", "/bridge/vvlan/data/end");
    TRACE_INFO("key=%s", key.c_str());
    bus_set_int(BUS_DB_STATE, key.c_str(), value);
    // The end lines carry the daemon's own prefix, unlike the start lines.
    TRACE_INFO("dov_vvlan_set_data_end_redis end");
}

// Only a written marker is copied: a delete or an expiry is refused, so the
// copy in database 0 stays. The code is tested before the record is traced.
int32_t get_data_end_pmsg_f(tukredis_pmsg *pmsg) {
    TRACE_INFO("get_data_end_pmsg_f start");
    if (pmsg == nullptr) {
        TRACE_ERR("pmsg is null");
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
