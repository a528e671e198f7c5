// SPDX-License-Identifier: BSD-3-Clause
#include "settings/cos_dscp.h"

#include "bus/bus_write.h"
#include "handler/handler_steps.h"
#include "settings/vvlan_table.h"
#include "wire/keys.h"

// Published whatever the voice VLAN's state, and never deleted here.
void set_cos_dscp_redis(const vvlan_cos_dscp &value) {
    TRACE_INFO("vvlan_cos_dscp->cos=%d, vvlan_cos_dscp->dscp=%d", value.cos, value.dscp);
    const key_buf key = family_key(key_family::cos_dscp);
    TRACE_INFO("key=%s", key.c_str());
    const cos_dscp_echo echo{g_vvlan_table.oui_idx, value.cos, value.dscp};
    TRACE_INFO("pre_entry_idx=%d, cos=%d, dscp=%d", echo.pre_entry_idx, echo.cos, echo.dscp);
    const auto bytes = cos_dscp_echo_codec::encode(echo);
    bus_set_raw(DB_STATE, key.c_str(), bytes.data(), bytes.size());
}

// A delete is handled like a set: whatever value the library still yields is
// published again (or the read fails). A value shorter than the two bytes of
// the record is taken as no value at all.
int32_t get_cos_dscp_pmsg_f(tukredis_pmsg *pmsg) {
    if (const auto done = handler_open(TRACE_SITE, pmsg)) {
        return *done;
    }
    vvlan_cos_dscp value{};
    const value_read r = read_record<cos_dscp_codec>(TRACE_SITE, pmsg, "vvlan_cos_dscp", &value);
    if (r != value_read::ok) {
        return read_failure_result(r);
    }
    TRACE_INFO("vvlan_cos_dscp->cos=%d, vvlan_cos_dscp->dscp=%d", value.cos, value.dscp);
    set_cos_dscp_redis(value);
    TRACE_INFO("get_cos_dscp_pmsg_f end");
    return 0;
}
