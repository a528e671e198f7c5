// SPDX-License-Identifier: BSD-3-Clause
// What the redis-server under test can do, for the tests whose setup needs a
// feature that came with a later server version (ACL users, channel
// permissions). The tests run against every server a switch image may carry
// (tools/compat-servers); a test that cannot be set up on one skips with the
// version that brought what it needs.
#pragma once

#include <string>
#include <vector>

#include "testsupport/redis_client.h"

namespace testsupport {

struct server_features {
    int major = 0;
    int minor = 0;

    // ACL users (AUTH user password, ACL SETUSER): Redis 6.0.
    bool acl_users() const { return major >= 6; }
    // Pub/sub channel permissions in ACL rules (&pattern, resetchannels):
    // Redis 6.2. Before, every user may subscribe to every channel.
    bool channel_permissions() const { return major > 6 || (major == 6 && minor >= 2); }
};

// From INFO server's redis_version (Valkey gives the Redis version it is
// compatible with there).
server_features features_of(redis_client &client);

// ACL SETUSER <user> on ><password> with every key, command and channel,
// the channel rule only where the server has channel permissions.
std::vector<std::string> acl_setuser_all(const server_features &server, const std::string &user,
                                         const std::string &password);

} // namespace testsupport
