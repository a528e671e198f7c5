// SPDX-License-Identifier: BSD-3-Clause
// The real dov_vvlan binary as a child process: standard output on a
// pseudo-terminal in raw mode (so the daemon's stdio is line-buffered, as on
// a console, and its "\r\n" line ends arrive unchanged), standard error in a
// file. An emulator prefix (qemu-mips) runs a target build the same way.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace integration {

struct daemon_options {
    std::string binary;                     // the daemon executable
    std::vector<std::string> emulator;      // run through this, e.g. {"qemu-mips", "-L", "..."}
    std::map<std::string, std::string> env; // set for the daemon (TUKREDIS_SOCKET, ...)
    std::string stderr_path;                // where its standard error goes
};

class daemon_process {
  public:
    explicit daemon_process(daemon_options options);
    ~daemon_process(); // kills and reaps

    daemon_process(const daemon_process &) = delete;
    daemon_process &operator=(const daemon_process &) = delete;

    void start();
    pid_t pid() const { return pid_; }
    bool running();
    // The exit status (0..255), 128+signal when killed, or -1 if the
    // process is still running at the deadline.
    int wait_exit(std::chrono::milliseconds deadline);
    void kill_now();
    // SIGTERM, then the exit status as wait_exit gives it.
    int terminate(std::chrono::milliseconds deadline);

    // Everything it has printed so far on standard output.
    std::string output() const;
    // Complete lines ("\r\n"-terminated), without their line end.
    std::vector<std::string> lines() const;
    std::string stderr_text() const;
    // Polls until output() contains needle.
    bool wait_output(const std::string &needle, std::chrono::milliseconds deadline) const;
    // Returns once everything the daemon has written to its terminal so far
    // has been collected into output().
    bool drain(std::chrono::milliseconds deadline) const;
    // Bytes of output seen so far: a mark to look for lines after an action.
    std::size_t mark() const;
    std::string output_since(std::size_t mark) const;

  private:
    void read_loop();

    daemon_options options_;
    pid_t pid_ = -1;
    int status_ = -1;
    int master_ = -1;
    int wake_[2] = {-1, -1};
    std::thread reader_;
    mutable std::mutex mutex_;
    std::string output_;
};

} // namespace integration
