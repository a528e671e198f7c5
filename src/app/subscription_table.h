// SPDX-License-Identifier: BSD-3-Clause
// The static table that binds key patterns to handlers, handed to the bus
// library once at start-up.
#pragma once

#include <array>

#include "tukredis.h"
#include "wire/key_families.h"

inline constexpr int SUB_TABLE_ROWS = 11;
static_assert(SUBSCRIBED_FAMILIES == SUB_TABLE_ROWS);

extern const std::array<tukredis_sub_row, SUB_TABLE_ROWS> g_sub_table;
