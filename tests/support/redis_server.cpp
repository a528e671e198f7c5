// SPDX-License-Identifier: BSD-3-Clause
#include "testsupport/redis_server.h"

#include "conn_settings.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <hiredis/hiredis.h>
#include <sstream>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "testsupport/eventually.h"

#ifndef TESTSUPPORT_REDIS_SERVER_BIN
#error "TESTSUPPORT_REDIS_SERVER_BIN must name the redis-server binary"
#endif

namespace testsupport {
namespace {

using namespace std::chrono_literals;

constexpr auto START_DEADLINE = 10s;
constexpr auto STOP_DEADLINE = 5s;

std::string make_private_dir() {
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/rs-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp " + pattern + ": " + std::strerror(errno));
    }
    return pattern;
}

bool answers_ping(const std::string &socket_path) {
    constexpr std::chrono::milliseconds TIMEOUT{200};
    std::string why;
    redisContext *context = conn_settings::connect_blocking(
        conn_settings::server_address::unix_socket(socket_path), TIMEOUT, TIMEOUT, why);
    if (context == nullptr) {
        return false;
    }
    auto *reply = static_cast<redisReply *>(redisCommand(context, "PING"));
    const bool ok = reply != nullptr && reply->type == REDIS_REPLY_STATUS &&
                    std::string(reply->str, reply->len) == "PONG";
    if (reply != nullptr) {
        freeReplyObject(reply);
    }
    redisFree(context);
    return ok;
}

// True once the child has exited (and been reaped).
bool reap(pid_t pid) {
    int status = 0;
    const pid_t done = waitpid(pid, &status, WNOHANG);
    return done == pid || (done < 0 && errno == ECHILD);
}

} // namespace

// REDIS_SERVER_BIN in the environment picks another server for a run of the
// same build (tools/compat-servers runs every test against each server an
// image may carry); the one found at configure time otherwise.
std::string server_binary() {
    const char *chosen = std::getenv("REDIS_SERVER_BIN");
    return chosen != nullptr && chosen[0] != '\0' ? chosen : TESTSUPPORT_REDIS_SERVER_BIN;
}

redis_server::redis_server()
    : dir_(make_private_dir()), socket_path_(dir_ + "/redis.sock"), log_path_(dir_ + "/redis.log") {
}

redis_server::~redis_server() {
    try {
        stop();
    } catch (...) {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

void redis_server::start() {
    if (pid_ > 0) {
        throw std::logic_error("redis-server is already running");
    }
    std::error_code ignored;
    std::filesystem::remove(socket_path_, ignored);

    std::vector<std::string> args = {server_binary(),
                                     "--port",
                                     "0",
                                     "--unixsocket",
                                     socket_path_,
                                     "--unixsocketperm",
                                     "700",
                                     "--dir",
                                     dir_,
                                     "--save",
                                     "",
                                     "--appendonly",
                                     "no",
                                     "--daemonize",
                                     "no"};
    args.insert(args.end(), extra_args_.begin(), extra_args_.end());
    std::vector<char *> argv;
    for (std::string &arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);

    const int log = open(log_path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (log < 0) {
        throw std::runtime_error("open " + log_path_ + ": " + std::strerror(errno));
    }
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        // Only async-signal-safe calls from here to exec: the test process
        // may have other threads.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(127);
        }
        const int null_input = open("/dev/null", O_RDONLY);
        dup2(null_input, STDIN_FILENO);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        // The test's own connections must not live on in the server.
        syscall(SYS_close_range, 3U, ~0U, 0U);
        // The test process may ignore SIGPIPE or block signals; the server
        // gets the defaults.
        signal(SIGPIPE, SIG_DFL);
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    const int fork_errno = errno;
    close(log);
    if (child < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(fork_errno));
    }
    pid_ = child;
    paused_ = false;
    wait_until_ready();
}

void redis_server::wait_until_ready() {
    bool exited = false;
    const bool ready = eventually(
        [&] {
            if (reap(pid_)) {
                exited = true;
                return true;
            }
            return answers_ping(socket_path_);
        },
        std::chrono::duration_cast<std::chrono::milliseconds>(START_DEADLINE));
    if (ready && !exited) {
        return;
    }
    if (!exited) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
    throw std::runtime_error(std::string("redis-server ") +
                             (exited ? "exited at start" : "did not answer PING") + "; its log:\n" +
                             log());
}

void redis_server::stop() {
    if (pid_ <= 0) {
        return;
    }
    kill(pid_, SIGTERM);
    if (paused_) {
        kill(pid_, SIGCONT);
    }
    const pid_t pid = pid_;
    if (!eventually([pid] { return reap(pid); },
                    std::chrono::duration_cast<std::chrono::milliseconds>(STOP_DEADLINE))) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    pid_ = -1;
    paused_ = false;
    std::error_code ignored;
    std::filesystem::remove(socket_path_, ignored);
}

void redis_server::restart() {
    stop();
    start();
}

void redis_server::pause() {
    if (pid_ > 0 && !paused_) {
        kill(pid_, SIGSTOP);
        paused_ = true;
    }
}

void redis_server::resume() {
    if (pid_ > 0 && paused_) {
        kill(pid_, SIGCONT);
        paused_ = false;
    }
}

std::string redis_server::log() const {
    std::ifstream file(log_path_);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace testsupport
