// The static table that binds key patterns to handlers, handed to the bus
// library once at start-up.
#pragma once

#include <array>

#include "tukredis.h"

inline constexpr int SUB_TABLE_ROWS = 11;

extern const std::array<tukredis_sub_row, SUB_TABLE_ROWS> g_sub_table;
