// SPDX-License-Identifier: BSD-3-Clause
// This tree has no vvlanctl: the fault tests print the findings they expect
// of it instead of checking them.
#include "vvlanctl_check.h"

namespace faults {

std::optional<check_result> run_vvlanctl_check(const std::string &) {
    return std::nullopt;
}

} // namespace faults
