// SPDX-License-Identifier: BSD-3-Clause
// Times as the tool prints them: ISO 8601 in local time with its offset
// ("2026-11-24T01:02:03.456+01:00"), so that lines from switches in other
// zones, or logs, can be compared. watch stamps an event when it arrives,
// history when the recorder read it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// wall_us: microseconds since the epoch.
std::string local_timestamp(int64_t wall_us);
// The current time, as local_timestamp prints it.
std::string timestamp_now();
// A time as local_timestamp prints it, with or without its fraction, with
// an offset or Z; false for anything else.
bool parse_timestamp(std::string_view text, int64_t *wall_us);
// A time from a recording's start, as history's and replay's limits take
// it: "90s", "2.5s", "15m", "1h". Microseconds.
bool parse_time_from_start(std::string_view text, int64_t *us);
