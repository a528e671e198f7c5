// SPDX-License-Identifier: BSD-3-Clause
// Every command the server runs, seen through MONITOR on a connection of its
// own and collected by a thread of its own.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace faults {

struct monitored_command {
    int db;
    std::string source; // "unix:<socket>", "<ip>:<port>" or "lua" (a script's own calls)
    std::vector<std::string> argv;
};

// One line of the MONITOR feed, e.g.
//   1700000000.123456 [1 unix:/tmp/x/redis.sock] "SET" "k" "\x00\x01"
// False when the line has another shape.
bool parse_monitor_line(const std::string &line, monitored_command *out);

class command_monitor {
  public:
    explicit command_monitor(const std::string &socket_path);
    ~command_monitor();
    command_monitor(const command_monitor &) = delete;
    command_monitor &operator=(const command_monitor &) = delete;

    // Everything seen so far.
    std::vector<monitored_command> commands() const;
    std::size_t size() const;
    // True once a command from the index from on satisfies predicate; looks
    // in place, without copying what was seen (values of 10 MB among it).
    bool any_since(std::size_t from,
                   const std::function<bool(const monitored_command &)> &predicate) const;
    // True once a command whose arguments are exactly argv has been seen:
    // the feed is in execution order, so everything before it has been too.
    bool seen(const std::vector<std::string> &argv) const;
    // Lines that could not be parsed.
    long unparsed() const { return unparsed_.load(); }

  private:
    void run();

    int fd_ = -1;
    void *context_ = nullptr; // redisContext
    std::atomic<bool> stop_{false};
    std::atomic<long> unparsed_{0};
    mutable std::mutex mutex_;
    std::vector<monitored_command> commands_;
    std::thread thread_;
};

} // namespace faults
