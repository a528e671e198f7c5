// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl as a child process of a test: this tree's build, or, when
// DOV_VVLAN_TARGET_BUILD_DIR names a target tree, that tree's build under
// qemu-mips (as the integration tests run the daemon). Standard output and
// error go to files, so a chatty tool never blocks on a full pipe.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace ctltest {

struct tool_result {
    int status = -1; // exit status, 128+signal when killed, -1 when it outlived its deadline
    std::string out;
    std::string err;
};

class tool_process {
  public:
    // Files go in dir; env is added to the test's own environment.
    tool_process(std::string dir, std::vector<std::string> args,
                 std::map<std::string, std::string> env = {});
    ~tool_process(); // kills and reaps
    tool_process(const tool_process &) = delete;
    tool_process &operator=(const tool_process &) = delete;

    void start();
    // Standard output to path instead (a device such as /dev/full), from the
    // next start().
    void output_to(std::string path) { out_path_ = std::move(path); }
    // Starts with standard output into a pipe, as "vvlanctl ... | reader";
    // returns the pipe's read end, which the caller reads and closes.
    int start_piped();
    // Starts with standard output on fd (a copy: the caller keeps and closes
    // its own), for example a pipe whose reader is gone already.
    void start_writing_to(int fd) { spawn(fd); }
    // The exit status, or -1 if it is still running at the deadline.
    int wait_exit(std::chrono::milliseconds deadline);
    void signal(int sig);
    std::string out() const;
    std::string err() const;

  private:
    void spawn(int out_fd); // out_fd < 0: out_path_
    std::string out_path_;
    std::string err_path_;
    std::vector<std::string> args_;
    std::map<std::string, std::string> env_;
    pid_t pid_ = -1;
    int status_ = -1;
};

// Runs the tool to its end (killed after deadline).
tool_result run_tool(const std::string &dir, const std::vector<std::string> &args,
                     const std::map<std::string, std::string> &env = {},
                     std::chrono::milliseconds deadline = std::chrono::seconds(60));

// The tool and what runs it ({} on the PC, qemu-mips for a target tree).
const std::string &tool_binary();
const std::vector<std::string> &tool_emulator();

} // namespace ctltest
