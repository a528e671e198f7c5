// SPDX-License-Identifier: BSD-3-Clause
// The one write convention: announce the write in the bus library's write
// log, issue the command, complete the announcement. The command's result is
// not examined; a failed write is neither retried nor reported. Used from the
// main thread and from the aging thread.
#pragma once

#include <cstddef>
#include <cstdint>

void bus_set_int(int32_t db, const char *key, int32_t value);  // "SET %s %d"
void bus_set_u16(int32_t db, const char *key, uint16_t value); // "SET %s %hu"
void bus_set_raw(int32_t db, const char *key, const uint8_t *bytes,
                 std::size_t len);         // "SET %s %b"
void bus_del(int32_t db, const char *key); // "DEL %s"
