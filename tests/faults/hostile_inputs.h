// SPDX-License-Identifier: BSD-3-Clause
// Hostile keys and values, as any other program on the switch could write
// them through the server: under every pattern the daemon subscribes to or
// re-reads, keys at and past the 127 bytes a notification carries and far
// beyond, keys with newlines, format directives, NUL and non-UTF-8 bytes;
// values empty, one byte short, 10 MB, not numeric; phyids, interfaces,
// VLAN ids and MAC-VLAN numbers at and past every limit; more OUIs than
// the table has slots; renames, expiries and values of other types.
#pragma once

#include <string>
#include <vector>

namespace faults {

struct hostile_input {
    int db;
    std::vector<std::string> argv; // one command
};

// Every input, each written key removed again later in the list, so that
// the daemon sees both the write and the removal.
std::vector<hostile_input> hostile_inputs();

} // namespace faults
