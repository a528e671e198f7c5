#include "handler/handler_steps.h"

#include <cstring>

std::string_view pmsg_key(const tukredis_pmsg *pmsg) {
    return std::string_view(pmsg->key, strnlen(pmsg->key, sizeof pmsg->key));
}

void trace_start(trace_site site) {
    TRACE_INFO_AT(site, "%s start", site.func);
}

bool pmsg_missing(trace_site site, const tukredis_pmsg *pmsg) {
    if (pmsg != nullptr) {
        return false;
    }
    TRACE_ERR_AT(site, "pmsg is null");
    return true;
}

bool expiry_ignored(trace_site site, const tukredis_pmsg *pmsg) {
    if (pmsg->cmd != TUKREDIS_CMD_EXPIRE) {
        return false;
    }
    TRACE_ERR_AT(site, "not care CMD_EXPIRE event");
    return true;
}

std::optional<int32_t> handler_open(trace_site site, const tukredis_pmsg *pmsg, expiry_test order) {
    trace_start(site);
    if (pmsg_missing(site, pmsg)) {
        return -4;
    }
    if (order == expiry_test::before_record && expiry_ignored(site, pmsg)) {
        return 0;
    }
    TRACE_PMSG_AT(site, pmsg);
    if (order == expiry_test::after_record && expiry_ignored(site, pmsg)) {
        return 0;
    }
    return std::nullopt;
}

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
