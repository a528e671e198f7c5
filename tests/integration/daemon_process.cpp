// SPDX-License-Identifier: BSD-3-Clause
#include "daemon_process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char **environ;

namespace integration {

daemon_process::daemon_process(daemon_options options) : options_(std::move(options)) {}

daemon_process::~daemon_process() {
    kill_now();
    if (reader_.joinable()) {
        const char byte = 0;
        (void)!::write(wake_[1], &byte, 1);
        reader_.join();
    }
    for (int fd : {master_, wake_[0], wake_[1]}) {
        if (fd >= 0) {
            close(fd);
        }
    }
}

void daemon_process::start() {
    int slave = -1;
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&master_, &slave, nullptr, &raw, nullptr) != 0 || pipe(wake_) != 0) {
        throw std::runtime_error(std::string("openpty: ") + std::strerror(errno));
    }
    std::vector<std::string> argv_text = options_.emulator;
    argv_text.push_back(options_.binary);
    std::vector<char *> argv;
    for (std::string &a : argv_text) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);

    // The environment: ours without any bus or platform setting of the test
    // runner's, plus the ones given.
    std::vector<std::string> env_text;
    for (char **e = environ; *e != nullptr; ++e) {
        const std::string entry(*e);
        if (entry.rfind("TUKREDIS_", 0) == 0 || entry.rfind("LIBSDM_", 0) == 0 ||
            entry.rfind("HAM_AGENT_", 0) == 0) {
            continue;
        }
        env_text.push_back(entry);
    }
    for (const auto &[name, value] : options_.env) {
        env_text.push_back(name + "=" + value);
    }
    std::vector<char *> envp;
    for (std::string &e : env_text) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);

    const int err_fd = open(options_.stderr_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int null_fd = open("/dev/null", O_RDONLY);
    pid_ = fork();
    if (pid_ < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    }
    if (pid_ == 0) {
        setsid();
        dup2(null_fd, STDIN_FILENO);
        dup2(slave, STDOUT_FILENO);
        dup2(err_fd >= 0 ? err_fd : null_fd, STDERR_FILENO);
        closefrom(STDERR_FILENO + 1);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(slave);
    if (err_fd >= 0) {
        close(err_fd);
    }
    close(null_fd);
    reader_ = std::thread(&daemon_process::read_loop, this);
}

// Drains the pseudo-terminal for the whole life of the process, so that the
// daemon never blocks on a full terminal buffer.
void daemon_process::read_loop() {
    char buf[4096];
    for (;;) {
        pollfd fds[2] = {{master_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if ((fds[0].revents & POLLIN) != 0) {
            // Read and append under the lock, so that drain() never sees the
            // terminal empty while bytes are on their way into output_.
            const std::lock_guard<std::mutex> lock(mutex_);
            const ssize_t n = read(master_, buf, sizeof buf);
            if (n > 0) {
                output_.append(buf, static_cast<std::size_t>(n));
                continue;
            }
        }
        if ((fds[0].revents & (POLLHUP | POLLERR)) != 0 || (fds[1].revents & POLLIN) != 0) {
            // EIO after the last writer closed: keep what was read.
            if ((fds[1].revents & POLLIN) != 0) {
                return;
            }
            const ssize_t n = read(master_, buf, sizeof buf);
            if (n <= 0) {
                return;
            }
            const std::lock_guard<std::mutex> lock(mutex_);
            output_.append(buf, static_cast<std::size_t>(n));
        }
    }
}

bool daemon_process::running() {
    if (pid_ <= 0) {
        return false;
    }
    int status = 0;
    const pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == pid_) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        pid_ = -1;
        return false;
    }
    return true;
}

int daemon_process::wait_exit(std::chrono::milliseconds deadline) {
    const auto until = std::chrono::steady_clock::now() + deadline;
    while (running()) {
        if (std::chrono::steady_clock::now() >= until) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return status_;
}

void daemon_process::kill_now() {
    if (running()) {
        ::kill(pid_, SIGKILL);
        wait_exit(std::chrono::seconds(10));
    }
}

int daemon_process::terminate(std::chrono::milliseconds deadline) {
    if (running()) {
        ::kill(pid_, SIGTERM);
    }
    return wait_exit(deadline);
}

std::string daemon_process::output() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return output_;
}

std::vector<std::string> daemon_process::lines() const {
    const std::string text = output();
    std::vector<std::string> out;
    std::size_t start = 0;
    for (std::size_t end = text.find("\r\n"); end != std::string::npos;
         end = text.find("\r\n", start)) {
        out.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return out;
}

std::string daemon_process::stderr_text() const {
    std::ifstream in(options_.stderr_path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool daemon_process::wait_output(const std::string &needle,
                                 std::chrono::milliseconds deadline) const {
    const auto until = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        if (output().find(needle) != std::string::npos) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool daemon_process::drain(std::chrono::milliseconds deadline) const {
    const auto until = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            int pending = 0;
            if (master_ < 0 || ioctl(master_, FIONREAD, &pending) != 0 || pending == 0) {
                return true;
            }
        }
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

std::size_t daemon_process::mark() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return output_.size();
}

std::string daemon_process::output_since(std::size_t mark) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return mark <= output_.size() ? output_.substr(mark) : std::string();
}

} // namespace integration
