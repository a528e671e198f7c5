// SPDX-License-Identifier: BSD-3-Clause
// `vvlanctl check --json` run against a server, where this build has the
// tool. Which implementation is linked is the build's choice: the real one
// when the CMake target vvlanctl exists, otherwise one that says so.
#pragma once

#include <optional>
#include <string>

#include "prescribed.h"

namespace faults {

struct check_result {
    int exit_status;
    findings found;
    std::string output; // what it printed, for failure messages
};

// nullopt when vvlanctl is not built in this tree.
std::optional<check_result> run_vvlanctl_check(const std::string &socket_path);

// The findings in the JSON object `vvlanctl check --json` prints: its
// member "findings", objects with "kind", "ifx" (null when none) and more.
// Throws std::runtime_error on text that is not such an object.
findings parse_check_json(const std::string &text);

// The status check gives for these findings: the worst severity of their
// kinds, 0 OK (none, or info only), 1 WARNING, 2 CRITICAL.
int check_status_of(const findings &found);

} // namespace faults
