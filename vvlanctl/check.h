// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl check: the conditions in which the daemon, doing exactly what it
// was built to do, leaves the voice VLAN wrong, found from both databases.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "snapshot.h"

// How much a finding matters to whoever is paged for it: info is part of
// normal operation (an aging window), warning is a copy or a configuration
// out of step, critical is a phone that is or will be left out of the voice
// VLAN, or a daemon that no longer follows the configuration.
enum class severity { info, warning, critical };

struct finding {
    std::string kind;
    severity level;
    std::optional<int32_t> ifx;
    std::string detail;
    std::string advice; // what clears it
};

// Every kind check reports, with its severity: what metrics lists, so that
// a kind not found reads 0 rather than nothing.
struct finding_kind {
    const char *kind;
    severity level;
};
inline constexpr finding_kind FINDING_KINDS[] = {
    {"daemon_not_subscribed", severity::critical},
    {"daemon_not_answering", severity::critical},
    {"daemon_presence_unknown", severity::warning},
    {"several_voice_vlans", severity::warning},
    {"join_key_missing", severity::critical},
    {"joined_without_voice_address", severity::info},
    {"voice_address_not_joined", severity::critical},
    {"joined_not_auto", severity::warning},
    {"join_key_without_join", severity::warning},
    {"published_differs", severity::warning},
    {"applied_without_configuration", severity::warning},
    {"oui_message_without_entry", severity::warning},
};

// Statuses of check, as monitoring plugins give them (Icinga, Nagios,
// Zabbix and Checkmk read these).
inline constexpr int CHECK_OK = 0;
inline constexpr int CHECK_WARNING = 1;
inline constexpr int CHECK_CRITICAL = 2;
inline constexpr int CHECK_UNKNOWN = 3;

// In a fixed order: the daemon's presence, the configuration itself, port
// findings by ifx, then the published copies. While the daemon is not
// subscribed, nothing is derived from what it published.
std::vector<finding> audit(const snapshot &s);
// The worst severity as a status: OK, WARNING or CRITICAL.
int check_status(const std::vector<finding> &f);
const char *severity_name(severity s);

std::string findings_text(const std::vector<finding> &f);
std::string findings_json(const std::vector<finding> &f, const snapshot &s);
