// SPDX-License-Identifier: BSD-3-Clause
// The forwarding layer learning addresses without pause, on its own
// connection and thread, across server faults: a write that fails is made
// again once the server answers.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "world.h"

namespace faults {

class learning_stream {
  public:
    // Addresses that make the daemon write nothing: new phones on ports
    // already joined, a PC on an automatic port, a phone in another VLAN,
    // a phone on a port not in automatic mode. Whatever of it the daemon
    // misses changes no key, so a fault in the middle leaves a state that
    // does not depend on where the stream was.
    explicit learning_stream(std::string socket_path);
    ~learning_stream();
    learning_stream(const learning_stream &) = delete;
    learning_stream &operator=(const learning_stream &) = delete;

    // Learnings the server has acknowledged so far.
    long written() const { return written_.load(); }
    // Writes that failed (server down) and were made again.
    long retried() const { return retried_.load(); }
    // Stops and returns every key written, in order.
    std::vector<std::string> stop();

  private:
    void run();

    std::string socket_path_;
    std::atomic<bool> stop_{false};
    std::atomic<long> written_{0};
    std::atomic<long> retried_{0};
    std::mutex mutex_;
    std::vector<std::string> keys_;
    std::thread thread_;
};

} // namespace faults
