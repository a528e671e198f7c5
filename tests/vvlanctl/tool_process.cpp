// SPDX-License-Identifier: BSD-3-Clause
#include "tool_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "daemon_fixture.h"

namespace ctltest {

namespace {

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::atomic<int> g_serial{0};

} // namespace

const std::string &tool_binary() {
    static const std::string path = [] {
        const char *target = std::getenv("DOV_VVLAN_TARGET_BUILD_DIR");
        if (target != nullptr && *target != '\0') {
            return std::string(target) + "/vvlanctl/vvlanctl";
        }
        return std::string(VVLANCTL_TEST_TOOL);
    }();
    return path;
}

const std::vector<std::string> &tool_emulator() {
    return integration::daemon_config::get().emulator;
}

tool_process::tool_process(std::string dir, std::vector<std::string> args,
                           std::map<std::string, std::string> env)
    : args_(std::move(args)), env_(std::move(env)) {
    const std::string base = dir + "/tool" + std::to_string(++g_serial);
    out_path_ = base + ".out";
    err_path_ = base + ".err";
}

tool_process::~tool_process() {
    if (pid_ > 0 && status_ < 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

void tool_process::start() {
    spawn(-1);
}

int tool_process::start_piped() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe failed");
    }
    spawn(fds[1]);
    close(fds[1]);
    return fds[0];
}

void tool_process::spawn(int out_fd) {
    std::vector<std::string> argv = tool_emulator();
    argv.push_back(tool_binary());
    argv.insert(argv.end(), args_.begin(), args_.end());
    const pid_t pid = fork();
    if (pid < 0) {
        throw std::runtime_error("fork failed");
    }
    if (pid == 0) {
        const int out =
            out_fd >= 0 ? out_fd : open(out_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(err_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int null = open("/dev/null", O_RDONLY);
        dup2(null, 0);
        dup2(out, 1);
        dup2(err, 2);
        for (const auto &[name, value] : env_) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        std::vector<char *> cargs;
        for (std::string &a : argv) {
            cargs.push_back(a.data());
        }
        cargs.push_back(nullptr);
        execv(cargs[0], cargs.data());
        _exit(127);
    }
    pid_ = pid;
}

int tool_process::wait_exit(std::chrono::milliseconds deadline) {
    if (status_ >= 0) {
        return status_;
    }
    const auto until = std::chrono::steady_clock::now() + deadline;
    while (true) {
        int raw = 0;
        const pid_t r = waitpid(pid_, &raw, WNOHANG);
        if (r == pid_) {
            status_ = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
            return status_;
        }
        if (std::chrono::steady_clock::now() >= until) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void tool_process::signal(int sig) {
    if (pid_ > 0 && status_ < 0) {
        kill(pid_, sig);
    }
}

std::string tool_process::out() const {
    return read_file(out_path_);
}

std::string tool_process::err() const {
    return read_file(err_path_);
}

tool_result run_tool(const std::string &dir, const std::vector<std::string> &args,
                     const std::map<std::string, std::string> &env,
                     std::chrono::milliseconds deadline) {
    tool_process p(dir, args, env);
    p.start();
    tool_result r;
    r.status = p.wait_exit(deadline);
    r.out = p.out();
    r.err = p.err();
    return r;
}

} // namespace ctltest
