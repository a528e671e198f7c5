// SPDX-License-Identifier: BSD-3-Clause
#include "event_map.h"

#include "api.h"

namespace tukredis {
namespace {

// The forwarding layer's MAC table: a write there is a learned address, which
// the daemon handles apart from other writes.
constexpr std::string_view MAC_TABLE_PREFIX = "/bri/mac/";

} // namespace

int32_t event_code(std::string_view event, std::string_view key) noexcept {
    // A rename's destination now holds a value as if it had been set.
    if (event == "set" || event == "rename_to") {
        return key.starts_with(MAC_TABLE_PREFIX) ? TUKREDIS_CMD_NEW_ADDR : TUKREDIS_CMD_SET;
    }
    // The key is gone, whichever way it went.
    if (event == "del" || event == "rename_from" || event == "evicted") {
        return TUKREDIS_CMD_DEL;
    }
    if (event == "expire") {
        return TUKREDIS_CMD_EXPIRE;
    }
    if (event == "expired") {
        return TUKREDIS_CMD_EXPIRED;
    }
    return NOT_DELIVERED;
}

} // namespace tukredis
