#include "settings/cos_dscp.h"

#include <array>

#include "bus/bus_write.h"
#include "bus/byte_order.h"
#include "bus/key_buf.h"
#include "settings/vvlan_table.h"
#include "trace/trace.h"

// Published whatever the voice VLAN's state, and never deleted here.
void set_cos_dscp_redis(const vvlan_cos_dscp &value) {
    TRACE_INFO("vvlan_cos_dscp->cos=%d, vvlan_cos_dscp->dscp=%d", value.cos, value.dscp);
    const key_buf key = key_printf("%s", "/bridge/vvlan/cos_dscp/");
    TRACE_INFO("key=%s", key.c_str());
    std::array<uint8_t, VVLAN_COS_DSCP_PUBLISHED_LEN> out{};
    be16_put(out.data(), g_vvlan_table.oui_idx);
    out[2] = value.cos;
    out[3] = value.dscp;
    TRACE_INFO("pre_entry_idx=%d, cos=%d, dscp=%d", g_vvlan_table.oui_idx, out[2], out[3]);
    bus_set_raw(BUS_DB_STATE, key.c_str(), out.data(), out.size());
}

// A delete is handled like a set: whatever value the library still yields is
// published again (or the read fails). A value shorter than the two bytes of
// the record is taken as no value at all.
int32_t get_cos_dscp_pmsg_f(tukredis_pmsg *pmsg) {
    TRACE_INFO("get_cos_dscp_pmsg_f start");
    if (pmsg == nullptr) {
        TRACE_ERR("pmsg is null");
        return -4;
    }
    TRACE_PMSG(pmsg);
    if (pmsg->cmd == TUKREDIS_CMD_EXPIRE) {
        TRACE_ERR("not care CMD_EXPIRE event");
        return 0;
    }
    char *bytes = nullptr;
    uint32_t len = 0;
    if (tukredis_get_key_reply_strval(pmsg->reply, &bytes, &len) != 0) {
        TRACE_ERR("get value fail");
        return -11;
    }
    if (bytes == nullptr) {
        TRACE_ERR("vvlan_cos_dscp is NULL\n");
        return -4;
    }
    if (len < VVLAN_COS_DSCP_LEN) {
        TRACE_ERR("vvlan_cos_dscp is too short, len=%u", len);
        return -4;
    }
    const auto *raw = reinterpret_cast<const uint8_t *>(bytes);
    const vvlan_cos_dscp value{raw[0], raw[1]};
    TRACE_INFO("vvlan_cos_dscp->cos=%d, vvlan_cos_dscp->dscp=%d", value.cos, value.dscp);
    set_cos_dscp_redis(value);
    TRACE_INFO("get_cos_dscp_pmsg_f end");
    return 0;
}
