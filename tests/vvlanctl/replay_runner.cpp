// SPDX-License-Identifier: BSD-3-Clause
#include "replay_runner.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <thread>

extern char **environ;

namespace ctltest {

using namespace std::chrono_literals;

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

pc_tool start_pc_tool(const std::string &dir, const std::vector<std::string> &args,
                      const std::string &tmp) {
    std::vector<std::string> text = {VVLANCTL_TEST_TOOL};
    text.insert(text.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &a : text) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> env_text = {"TMPDIR=" + tmp};
    for (char **e = environ; *e != nullptr; ++e) {
        if (std::string(*e).rfind("TMPDIR=", 0) != 0) {
            env_text.emplace_back(*e);
        }
    }
    std::vector<char *> envp;
    for (std::string &e : env_text) {
        envp.push_back(e.data());
    }
    envp.push_back(nullptr);
    pc_tool t{-1, dir + "/replay.out", dir + "/replay.err"};
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, t.out.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, t.err.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (posix_spawn(&t.pid, argv[0], &files, nullptr, argv.data(), envp.data()) != 0) {
        t.pid = -1;
    }
    posix_spawn_file_actions_destroy(&files);
    return t;
}

tool_result wait_pc_tool(const pc_tool &t, std::chrono::milliseconds deadline) {
    tool_result r;
    if (t.pid < 0) {
        return r;
    }
    const auto until = std::chrono::steady_clock::now() + deadline;
    int status = 0;
    bool late = false;
    while (waitpid(t.pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= until) {
            kill(t.pid, SIGTERM);
            waitpid(t.pid, &status, 0);
            late = true;
            break;
        }
        std::this_thread::sleep_for(10ms);
    }
    if (!late) {
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    r.out = read_file(t.out);
    r.err = read_file(t.err);
    return r;
}

} // namespace ctltest
