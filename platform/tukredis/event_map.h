// SPDX-License-Identifier: BSD-3-Clause
// Which keyspace events reach the daemon, and with which code.
#pragma once

#include <cstdint>
#include <string_view>

namespace tukredis {

constexpr int32_t NOT_DELIVERED = -1;

// The code for event on key, or NOT_DELIVERED. Pure, so that the table can be
// tested without a server.
int32_t event_code(std::string_view event, std::string_view key) noexcept;

} // namespace tukredis
