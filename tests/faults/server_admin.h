// SPDX-License-Identifier: BSD-3-Clause
// Faults made through the server itself: its clients killed, its data saved
// across a restart.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "testsupport/redis_client.h"
#include "testsupport/redis_server.h"

namespace faults {

struct client_info {
    long long id;
    std::string flags; // "N" normal (TCP), "U" Unix socket, "P" subscribed, "O" monitor...
};

std::vector<client_info> list_clients(testsupport::redis_client &admin);

// Kills every normal (not subscribed, not monitoring) client except the
// admin's own connection and those in spared: the daemon's command
// connection. Returns how many were killed.
int kill_command_clients(testsupport::redis_client &admin, const std::set<long long> &spared = {});

// Kills every subscribed client (CLIENT KILL TYPE pubsub).
int kill_subscription_clients(testsupport::redis_client &admin);

// SHUTDOWN SAVE: the server writes its data to its directory and exits; a
// start() of the same server loads it again, as a switch's server keeps its
// databases across a restart.
void shutdown_keeping_data(testsupport::redis_server &server, testsupport::redis_client &admin);

} // namespace faults
