// SPDX-License-Identifier: BSD-3-Clause
#include "measures.h"

#include <algorithm>
#include <stdexcept>

#include "records.h"

namespace busbench {
namespace {

using namespace std::chrono_literals;

void queue(Pipeline &load, const std::vector<std::vector<std::string>> &commands) {
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

double ceiling_rate(ConsumerKind kind, const std::string &socket_path, Pipeline &load,
                    const std::vector<std::vector<std::string>> &churn, bool backlog) {
    Consumer consumer(kind, socket_path, churn.size());
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

double daemon_rate(DaemonRun &daemon, Pipeline &load,
                   const std::vector<std::vector<std::string>> &churn, bool backlog) {
    Clock::time_point start;
    if (backlog) {
        daemon.pause();
        queue(load, churn);
        daemon.queue_marker();
        load.finish();
        start = Clock::now();
        daemon.resume();
    } else {
        start = Clock::now();
        queue(load, churn);
        daemon.queue_marker();
        load.finish();
    }
    const Clock::time_point done = daemon.wait_marker();
    return static_cast<double>(churn.size()) / std::chrono::duration<double>(done - start).count();
}

std::vector<double> join_latencies(DaemonRun &daemon, Pipeline &load, Observer &observer,
                                   size_t count) {
    (void)daemon;
    std::vector<double> samples;
    for (size_t j = 0; j < count; ++j) {
        const uint32_t ifx = 10 + static_cast<uint32_t>(j % 40);
        const std::string learned = learned_key(static_cast<int>(ifx) + 1, 0x100000U + ifx);
        const std::string mode1 = "/bridge/vvlan/port_oper/" + std::to_string(ifx) + "/1";
        observer.discard();
        const Clock::time_point start = Clock::now();
        load.add(0, {"SET", learned, ""});
        load.finish();
        Clock::time_point joined;
        if (!observer.wait(1, "/bri/mac/macTblDyn_vvlan/" + std::to_string(ifx), "set", 10s,
                           joined)) {
            throw std::runtime_error("no join request for port " + std::to_string(ifx));
        }
        samples.push_back(std::chrono::duration<double, std::micro>(joined - start).count());
        // Out of automatic mode and back: the port can join again.
        load.add(0, {"DEL", learned});
        load.add(1, {"DEL", mode1});
        load.add(1, {"SET", mode1, testcommon::port_oper_value(ifx, 1, 1)});
        load.finish();
        Clock::time_point echoed;
        if (!observer.wait(0, mode1, "set", 10s, echoed)) {
            throw std::runtime_error("port " + std::to_string(ifx) + " not back in automatic mode");
        }
    }
    return samples;
}

void fill_mac_table(Pipeline &load, size_t &held, size_t total) {
    for (; held < total; ++held) {
        load.add(0, {"SET",
                     learned_key(60 + static_cast<int>(held % 40),
                                 0x01000000U + static_cast<uint32_t>(held)),
                     ""});
    }
    load.finish();
}

} // namespace busbench
