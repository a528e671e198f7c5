// SPDX-License-Identifier: BSD-3-Clause
#include "replay_process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "connection.h"
#include "stop_signals.h"

namespace {

// Reaps pid when it has exited; true then.
bool reaped(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, WNOHANG) == pid;
}

// SIGTERM, SIGKILL after deadline, and the reap either way.
void end_process(pid_t pid, std::chrono::milliseconds deadline) {
    if (pid <= 0) {
        return;
    }
    kill(pid, SIGTERM);
    const auto until = std::chrono::steady_clock::now() + deadline;
    while (!reaped(pid)) {
        if (std::chrono::steady_clock::now() >= until) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            return;
        }
        // Not replay_pause: the signal that asked us to stop must not cut
        // the wait for the children short.
        poll(nullptr, 0, 10);
    }
}

std::vector<char *> pointers(std::vector<std::string> &text) {
    std::vector<char *> out;
    for (std::string &s : text) {
        out.push_back(s.data());
    }
    out.push_back(nullptr);
    return out;
}

} // namespace

bool replay_interrupted() {
    return stop_requested();
}

void replay_catch_signals() {
    catch_stop_signals();
}

bool replay_pause(std::chrono::microseconds d) {
    const auto until = std::chrono::steady_clock::now() + d;
    for (;;) {
        if (replay_interrupted()) {
            return false;
        }
        const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
            until - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return true;
        }
        const int64_t us = std::min<int64_t>(left.count(), 100000);
        const timespec ts{static_cast<time_t>(us / 1000000),
                          static_cast<long>(us % 1000000) * 1000};
        ppoll(nullptr, 0, &ts, nullptr);
    }
}

replay_server::~replay_server() {
    stop(false);
}

bool replay_server::start(const std::string &binary, std::chrono::milliseconds deadline,
                          std::string *why) {
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = (tmp != nullptr && tmp[0] != '\0') ? tmp : "/tmp";
    pattern += "/vvlan-replay.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        *why = "cannot make a directory " + pattern + ": " + std::strerror(errno);
        return false;
    }
    dir_ = pattern;
    socket_ = dir_ + "/redis.sock";
    std::vector<std::string> args = {binary,
                                     "--port",
                                     "0",
                                     "--unixsocket",
                                     socket_,
                                     "--unixsocketperm",
                                     "700",
                                     "--dir",
                                     dir_,
                                     "--save",
                                     "",
                                     "--appendonly",
                                     "no",
                                     "--daemonize",
                                     "no",
                                     "--logfile",
                                     dir_ + "/redis.log"};
    std::vector<char *> argv = pointers(args);
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        *why = std::string("fork: ") + std::strerror(errno);
        return false;
    }
    if (pid_ == 0) {
        // The server goes with us, whatever ends us.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);
        }
        const int null_fd = open("/dev/null", O_RDWR);
        dup2(null_fd, STDIN_FILENO);
        dup2(null_fd, STDOUT_FILENO);
        closefrom(STDERR_FILENO + 1);
        signal(SIGINT, SIG_IGN); // our SIGINT stops it in order, not the terminal's
        execvp(argv[0], argv.data());
        _exit(127);
    }
    const auto until = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        if (reaped(pid_)) {
            pid_ = -1;
            *why = "redis-server " + binary + " did not start (see " + dir_ + "/redis.log)";
            return false;
        }
        std::string ignored;
        if (connection::open(server_address::unix_socket(socket_), {}, &ignored)) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= until ||
            !replay_pause(std::chrono::milliseconds(20))) {
            *why = "redis-server " + binary + " did not answer";
            return false;
        }
    }
}

void replay_server::stop(bool keep) {
    end_process(pid_, std::chrono::seconds(5));
    pid_ = -1;
    if (!keep && !dir_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    dir_.clear();
}

replay_daemon::~replay_daemon() {
    stop(std::chrono::seconds(5));
}

bool replay_daemon::start(std::string *why) {
    int slave = -1;
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&master_, &slave, nullptr, &raw, nullptr) != 0) {
        *why = std::string("openpty: ") + std::strerror(errno);
        return false;
    }
    if (pipe(wake_) != 0) {
        *why = std::string("pipe: ") + std::strerror(errno);
        close(slave);
        return false;
    }
    std::vector<char *> argv = pointers(argv_);
    std::vector<char *> envp = pointers(env_);
    const int null_fd = open("/dev/null", O_RDONLY);
    // Closed by a successful exec; else the child writes its errno there.
    int exec_result[2] = {-1, -1};
    if (pipe2(exec_result, O_CLOEXEC) != 0) {
        *why = std::string("pipe: ") + std::strerror(errno);
        close(slave);
        return false;
    }
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        *why = std::string("fork: ") + std::strerror(errno);
        return false;
    }
    if (pid_ == 0) {
        // Its own session (the terminal is its controlling one), and gone
        // with us even when we are killed outright.
        setsid();
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) {
            _exit(127);
        }
        dup2(null_fd, STDIN_FILENO);
        dup2(slave, STDOUT_FILENO);
        dup2(trace_fd_, STDERR_FILENO);
        const int report = fcntl(exec_result[1], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        for (int fd = STDERR_FILENO + 1; fd < report; ++fd) {
            close(fd);
        }
        closefrom(report + 1);
        // execvpe: the emulator or the daemon is found as a shell would.
        execvpe(argv[0], argv.data(), envp.data());
        const int err = errno;
        (void)!write(report, &err, sizeof err);
        _exit(127);
    }
    close(slave);
    close(null_fd);
    close(exec_result[1]);
    int err = 0;
    ssize_t n = 0;
    do {
        n = read(exec_result[0], &err, sizeof err);
    } while (n < 0 && errno == EINTR);
    close(exec_result[0]);
    if (n == static_cast<ssize_t>(sizeof err)) {
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
        *why = "cannot run " + argv_[0] + ": " + std::strerror(err);
        return false;
    }
    reader_ = std::thread(&replay_daemon::copy_output, this);
    return true;
}

// Drains the terminal for the whole life of the process, so that the daemon
// never blocks on a full terminal buffer.
void replay_daemon::copy_output() {
    char buf[4096];
    for (;;) {
        pollfd fds[2] = {{master_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if ((fds[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            const ssize_t n = read(master_, buf, sizeof buf);
            if (n <= 0) {
                return; // EIO once the last writer closed
            }
            (void)!write(trace_fd_, buf, static_cast<std::size_t>(n));
            continue;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            // Asked to stop: what the daemon printed last is kept too.
            fcntl(master_, F_SETFL, fcntl(master_, F_GETFL) | O_NONBLOCK);
            for (ssize_t n = read(master_, buf, sizeof buf); n > 0;
                 n = read(master_, buf, sizeof buf)) {
                (void)!write(trace_fd_, buf, static_cast<std::size_t>(n));
            }
            return;
        }
    }
}

void replay_daemon::join_reader() {
    if (reader_.joinable()) {
        const char byte = 0;
        (void)!write(wake_[1], &byte, 1);
        reader_.join();
    }
    for (int *fd : {&master_, &wake_[0], &wake_[1]}) {
        if (*fd >= 0) {
            close(*fd);
            *fd = -1;
        }
    }
}

bool replay_daemon::running() {
    if (pid_ <= 0) {
        return false;
    }
    if (reaped(pid_)) {
        pid_ = -1;
        join_reader();
        return false;
    }
    return true;
}

void replay_daemon::stop(std::chrono::milliseconds deadline) {
    end_process(pid_, deadline);
    pid_ = -1;
    join_reader();
}
