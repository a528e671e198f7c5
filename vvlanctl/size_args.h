// SPDX-License-Identifier: BSD-3-Clause
// Durations and sizes as an operator types them ("90s", "10m", "24h",
// "500ms"; "64M", "512k"), and the two clocks a recording keeps.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The smallest ring: two files, each large enough for a snapshot of an
// ordinary switch and some events.
inline constexpr uint64_t MIN_RING_BYTES = 64 * 1024;

// A number and a unit: ms, s, m, h, d (no unit: seconds). Microseconds.
bool parse_duration(std::string_view text, int64_t *us, std::string *why);
// A number and k, M or G (powers of 1024), or a bare number.
bool parse_size(std::string_view text, uint64_t *out, std::string *why);

namespace rec_clock {
int64_t mono_us();
int64_t wall_us();
} // namespace rec_clock
