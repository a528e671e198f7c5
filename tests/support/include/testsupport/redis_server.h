// SPDX-License-Identifier: BSD-3-Clause
// A private redis-server for one test.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace testsupport {

// Runs redis-server as a child process in a directory of its own (made with
// mkdtemp under $TMPDIR or /tmp, short enough for a Unix socket path),
// listening on <dir>/redis.sock only: no TCP port, no persistence. Each test
// starts its own, so tests may run in parallel. The destructor kills the
// server and removes the directory, and the server also dies with the thread
// that started it (PR_SET_PDEATHSIG), so a failing or crashing test leaves
// no server behind. Start it from the test's own thread. The binary is
// $REDIS_SERVER_BIN when set, else the redis-server found at configure time.
// The redis-server binary the servers of this run are started from.
std::string server_binary();

class redis_server {
  public:
    // Makes the directory; the server is not started yet.
    redis_server();
    ~redis_server();
    redis_server(const redis_server &) = delete;
    redis_server &operator=(const redis_server &) = delete;

    // Starts the server and returns once it answers PING. Throws
    // std::runtime_error, with the end of the server's log, if it does not
    // within 10 s.
    void start();
    // SIGTERM, and SIGKILL if the server has not exited within 5 s. The
    // socket file goes away with the server. No effect when not running.
    void stop();
    // stop() then start(): same directory and socket path, empty data.
    void restart();
    // SIGSTOP / SIGCONT: the server keeps its connections but answers
    // nothing, as a hung or unreachable peer would.
    void pause();
    void resume();

    bool running() const { return pid_ > 0; }
    const std::string &socket_path() const { return socket_path_; }
    const std::string &dir() const { return dir_; }
    // The server's process id, -1 when not running.
    pid_t pid() const { return pid_; }
    // The server's stdout and stderr so far (<dir>/redis.log).
    std::string log() const;

    // Arguments appended to the command line from the next start() on, for
    // example {"--maxmemory", "1mb"}.
    void set_extra_args(std::vector<std::string> args) { extra_args_ = std::move(args); }

  private:
    void wait_until_ready();

    std::string dir_;
    std::string socket_path_;
    std::string log_path_;
    std::vector<std::string> extra_args_;
    pid_t pid_ = -1;
    bool paused_ = false;
};

} // namespace testsupport
