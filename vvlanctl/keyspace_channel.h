// SPDX-License-Identifier: BSD-3-Clause
// The keyspace-event channels of the voice VLAN's keys, as watch and record
// subscribe to them and take them apart.
#pragma once

#include <string>

class connection;
#include <string_view>

// Every family's keys start with "/bri"; the debug key is the one other.
// Keys of other components under "/bri" come too: the caller keeps those of
// a family.
inline constexpr const char *KEYSPACE_PATTERNS[] = {"__keyspace@0__:/bri*", "__keyspace@1__:/bri*",
                                                    "__keyspace@0__:debugDovVVlan"};

// "__keyspace@<db>__:<key>" into db and key; false for any other channel.
bool split_channel(std::string_view channel, int *db, std::string *key);

// Whether the server sends the keyspace events a subscriber of the
// families needs (K, g, $, x and e). EXIT_FINE when it does, or when it will
// not say (CONFIG renamed or denied: a warning on standard error that
// command goes on as if the flags were on); EXIT_NOT_DONE with *why naming
// the missing flags and the CONFIG SET that adds them, *wanted being the
// whole setting for a caller allowed to make it.
int check_keyspace_events(connection &c, const char *command, std::string *why,
                          std::string *wanted);
