// SPDX-License-Identifier: BSD-3-Clause
// The daemon's own key set, derived from the key family declarations and
// the key builders: what it may read (keys under its subscribed patterns and
// its re-read patterns), mark and sweep (its swept patterns in database 0),
// and write (exactly the key forms its publishers build, with values of the
// lengths their codecs give). Any command it sends outside that is a defect.
#pragma once

#include <optional>
#include <string>

#include "command_monitor.h"

namespace faults {

// Why the command is outside the daemon's key set, or nullopt when it is
// inside.
std::optional<std::string> outside_key_set(const monitored_command &command);

} // namespace faults
