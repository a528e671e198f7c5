// SPDX-License-Identifier: BSD-3-Clause
// The measures, each on the same server as the others.
#pragma once

#include "bus_bench.h"
#include "daemon_run.h"

namespace busbench {

// Notifications per second for a ceiling consumer; backlog: the whole load
// queued before it reads.
double ceiling_rate(consumer_kind kind, const std::string &socket_path, pipeline &load,
                    const std::vector<std::vector<std::string>> &churn, bool backlog);

// Notifications per second for the daemon (port 5 joined beforehand).
double daemon_rate(daemon_run &daemon, pipeline &load,
                   const std::vector<std::vector<std::string>> &churn, bool backlog);

// Microseconds from a voice address learned on an automatic port to the
// daemon's join request for it, count times over ports 10 to 49, and a PING
// round trip timed just before each join.
struct join_samples {
    std::vector<double> join_us;
    std::vector<double> ping_us;
};
join_samples join_latencies(pipeline &load, keyspace_observer &observer, pipeline &pings,
                            size_t count);
// The same against the bare relay (consumer_kind::RELAY), with no daemon.
join_samples relay_latencies(pipeline &load, keyspace_observer &observer, pipeline &pings,
                             size_t count);

// Adds MAC-learning keys to database 0 until it holds total of them.
void fill_mac_table(pipeline &load, size_t &held, size_t total);

// The median of values.
double median(std::vector<double> values);

} // namespace busbench
