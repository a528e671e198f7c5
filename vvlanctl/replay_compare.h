// SPDX-License-Identifier: BSD-3-Clause
// What replay concludes: the daemon's keys as the replayed daemon left them
// against the same keys in the recording, each difference worded as one of
// check's findings, and the report of a run as text or JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "check.h"
#include "recording_file.h"

struct replay_difference {
    std::string kind; // one of FINDING_KINDS
    severity level = severity::warning;
    std::optional<int32_t> ifx;
    int db = 0;
    std::string key;
    std::optional<std::string> recorded; // nullopt: not there
    std::optional<std::string> replayed;
};

// The daemon's keys of both spaces compared, in key order. Keys of another
// type than string are left out.
std::vector<replay_difference> compare_owned(const rec::keyspace &recorded,
                                             const rec::keyspace &replayed);

// A value as text: printable() when it is text, else its bytes in hex.
std::string value_text(const std::optional<std::string> &v);

struct replay_report {
    uint64_t events_played = 0;
    int64_t duration_ms = 0;
    std::vector<replay_difference> differences;
    std::vector<finding> audit;
    std::vector<std::string> notes;
};

std::string report_text(const replay_report &r);
std::string report_json(const replay_report &r);
