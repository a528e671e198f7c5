// SPDX-License-Identifier: BSD-3-Clause
// The processes replay runs: a private redis-server in a directory of its
// own, and the daemon under a pseudo-terminal (its standard output is
// line-buffered only on a terminal, so its traces would otherwise arrive in
// blocks, long after what caused them) with everything it prints copied to
// the trace file.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

// SIGINT or SIGTERM arrived: every wait gives up at once.
bool replay_interrupted();
// Installs the handlers that set it (without SA_RESTART, so that a wait in
// poll() returns).
void replay_catch_signals();
// Sleeps up to d, in ppoll() so that a signal ends the sleep; false when one
// did.
bool replay_pause(std::chrono::microseconds d);

class replay_server {
  public:
    ~replay_server();
    // Makes a directory under $TMPDIR (or /tmp), starts binary there on a
    // Unix socket only, and waits until it answers. False with why.
    bool start(const std::string &binary, std::chrono::milliseconds deadline, std::string *why);
    // SIGTERM (SIGKILL after a deadline) and, unless keep, the directory.
    void stop(bool keep);
    const std::string &socket_path() const { return socket_; }
    const std::string &dir() const { return dir_; }

  private:
    std::string dir_;
    std::string socket_;
    pid_t pid_ = -1;
};

class replay_daemon {
  public:
    // argv[0] is looked up in PATH; env is the whole environment.
    replay_daemon(std::vector<std::string> argv, std::vector<std::string> env, int trace_fd)
        : argv_(std::move(argv)), env_(std::move(env)), trace_fd_(trace_fd) {}
    ~replay_daemon();
    replay_daemon(const replay_daemon &) = delete;
    replay_daemon &operator=(const replay_daemon &) = delete;

    bool start(std::string *why);
    bool running();
    // SIGTERM, then SIGKILL when it has not exited by the deadline.
    void stop(std::chrono::milliseconds deadline);
    pid_t pid() const { return pid_; }

  private:
    void copy_output();
    void join_reader();

    std::vector<std::string> argv_;
    std::vector<std::string> env_;
    int trace_fd_;
    pid_t pid_ = -1;
    int master_ = -1;
    int wake_[2] = {-1, -1};
    std::thread reader_;
};
