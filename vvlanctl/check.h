// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl check: the conditions in which the daemon, doing exactly what it
// was built to do, leaves the voice VLAN wrong, found from both databases.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "snapshot.h"

struct finding {
    std::string kind;
    std::optional<int32_t> ifx;
    std::string detail;
};

// In a fixed order: port findings by ifx, then the published copies.
std::vector<finding> audit(const snapshot &s);

std::string findings_text(const std::vector<finding> &f);
std::string findings_json(const std::vector<finding> &f);
