// SPDX-License-Identifier: BSD-3-Clause
#include "handler/handler_steps.h"

// The pointer starts null, whatever the reader promises, so that a reader
// that leaves it alone can never make a handler read garbage.
value_read read_value_bytes(trace_site site, tukredis_pmsg *pmsg, const char *record,
                            std::size_t need, std::span<const uint8_t> *bytes) {
    char *value = nullptr;
    uint32_t len = 0;
    if (tukredis_get_key_reply_strval(pmsg->reply, &value, &len) != 0) {
        TRACE_ERR_AT(site, "get value fail");
        return value_read::failed;
    }
    if (value == nullptr) {
        TRACE_ERR_AT(site, "%s is NULL\n", record);
        return value_read::absent;
    }
    if (len < need) {
        TRACE_ERR_AT(site, "%s is too short, len=%u", record, len);
        return value_read::short_value;
    }
    *bytes = std::span<const uint8_t>(reinterpret_cast<const uint8_t *>(value), len);
    return value_read::ok;
}
