// SPDX-License-Identifier: BSD-3-Clause
#include "measures.h"

#include <algorithm>
#include <stdexcept>

#include "records.h"
#include "wire/keys.h"

namespace busbench {
namespace {

using namespace std::chrono_literals;

void queue(pipeline &load, const std::vector<std::vector<std::string>> &commands) {
    for (const auto &command : commands) {
        load.add(0, command);
    }
}

} // namespace

double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double ceiling_rate(consumer_kind kind, const std::string &socket_path, pipeline &load,
                    const std::vector<std::vector<std::string>> &churn, bool backlog) {
    consumer_process consumer(kind, socket_path, churn.size());
    if (backlog) {
        queue(load, churn);
        load.finish();
        consumer.go();
    } else {
        consumer.go();
        queue(load, churn);
        load.finish();
    }
    return static_cast<double>(churn.size()) / consumer.finish();
}

double daemon_rate(daemon_run &daemon, pipeline &load,
                   const std::vector<std::vector<std::string>> &churn, bool backlog) {
    steady_clock::time_point start;
    if (backlog) {
        daemon.pause();
        queue(load, churn);
        daemon.queue_marker();
        load.finish();
        start = steady_clock::now();
        daemon.resume();
    } else {
        start = steady_clock::now();
        queue(load, churn);
        daemon.queue_marker();
        load.finish();
    }
    const steady_clock::time_point done = daemon.wait_marker();
    return static_cast<double>(churn.size()) / std::chrono::duration<double>(done - start).count();
}

namespace {

// Times count joins over ports 10 to 49; reset(ifx, learned) undoes one so
// that the port can join again.
template <typename Reset>
join_samples timed_joins(pipeline &load, keyspace_observer &observer, pipeline &pings, size_t count,
                         Reset &&reset) {
    join_samples samples;
    samples.join_us.reserve(count);
    samples.ping_us.reserve(count);
    for (size_t j = 0; j < count; ++j) {
        // The ceiling is timed in the same moment as the join it is
        // compared with, the daemon running, so that a busy or idle spell of
        // the machine falls on both.
        samples.ping_us.push_back(ping_round_trip_us(pings.context()));
        const uint32_t ifx = 10 + static_cast<uint32_t>(j % 40);
        const std::string learned = learned_key(static_cast<int>(ifx) + 1, 0x100000U + ifx);
        observer.discard();
        const steady_clock::time_point start = steady_clock::now();
        load.add(0, {"SET", learned, ""});
        // The writer does not wait for its reply here: on two cores, waking
        // for it would take a core from the daemon in the very moment that
        // is timed. The reply is read with the clean-up's below.
        load.send();
        steady_clock::time_point joined;
        if (!observer.wait(1, join_request_key(static_cast<int32_t>(ifx)).c_str(), "set", 10s,
                           joined)) {
            throw std::runtime_error("no join request for port " + std::to_string(ifx));
        }
        samples.join_us.push_back(
            std::chrono::duration<double, std::micro>(joined - start).count());
        reset(ifx, learned);
    }
    return samples;
}

} // namespace

join_samples join_latencies(pipeline &load, keyspace_observer &observer, pipeline &pings,
                            size_t count) {
    return timed_joins(load, observer, pings, count, [&](uint32_t ifx, const std::string &learned) {
        // Out of automatic mode and back: the port can join again.
        const std::string mode1 = port_oper_key(static_cast<int32_t>(ifx), PORT_MODE_AUTO).c_str();
        load.add(0, {"DEL", learned});
        load.add(1, {"DEL", mode1});
        load.add(1, {"SET", mode1, testcommon::port_oper_value(ifx, 1, 1)});
        load.finish();
        steady_clock::time_point echoed;
        if (!observer.wait(0, mode1, "set", 10s, echoed)) {
            throw std::runtime_error("port " + std::to_string(ifx) + " not back in automatic mode");
        }
    });
}

join_samples relay_latencies(pipeline &load, keyspace_observer &observer, pipeline &pings,
                             size_t count) {
    join_samples samples =
        timed_joins(load, observer, pings, count, [&](uint32_t, const std::string &learned) {
            load.add(0, {"DEL", learned});
            load.finish();
        });
    // What the relay wrote goes, so that the daemons after it start as before.
    for (int32_t ifx = 10; ifx < 50; ++ifx) {
        load.add(0, {"DEL", port_oper_key(ifx, PORT_MODE_JOINED).c_str()});
        load.add(1, {"DEL", join_request_key(ifx).c_str()});
    }
    load.finish();
    return samples;
}

void fill_mac_table(pipeline &load, size_t &held, size_t total) {
    for (; held < total; ++held) {
        load.add(0, {"SET",
                     learned_key(60 + static_cast<int>(held % 40),
                                 0x01000000U + static_cast<uint32_t>(held)),
                     ""});
    }
    load.finish();
}

} // namespace busbench
