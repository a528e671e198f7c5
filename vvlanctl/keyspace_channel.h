// SPDX-License-Identifier: BSD-3-Clause
// The keyspace-event channels of the voice VLAN's keys, as watch and record
// subscribe to them and take them apart.
#pragma once

#include <string>
#include <string_view>

// Every family's keys start with "/bri"; the debug key is the one other.
// Keys of other components under "/bri" come too: the caller keeps those of
// a family.
inline constexpr const char *KEYSPACE_PATTERNS[] = {"__keyspace@0__:/bri*", "__keyspace@1__:/bri*",
                                                    "__keyspace@0__:debugDovVVlan"};

// "__keyspace@<db>__:<key>" into db and key; false for any other channel.
bool split_channel(std::string_view channel, int *db, std::string *key);
