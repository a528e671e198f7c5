// SPDX-License-Identifier: BSD-3-Clause
// Re-synchronisation after every connection: mark the published keys,
// re-read the configuration through the ordinary handlers, sweep what was
// not published again.
#pragma once

#include <cstdint>

int32_t check_db_validate(unsigned int code);
