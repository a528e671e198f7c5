// SPDX-License-Identifier: BSD-3-Clause
#include "process_probe.h"

#include <dirent.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>

namespace faults {
namespace {

int count_entries(const std::string &dir) {
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) {
        return -1;
    }
    int n = 0;
    while (const dirent *e = readdir(d)) {
        if (e->d_name[0] != '.') {
            ++n;
        }
    }
    closedir(d);
    return n;
}

} // namespace

long cpu_ticks(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The command name may hold blanks; the fields after it start past ')'.
    const std::size_t close = text.rfind(')');
    if (close == std::string::npos) {
        return -1;
    }
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    long ticks = 0;
    // Fields 3.. follow; utime and stime are fields 14 and 15.
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14 || i == 15) {
            ticks += std::stol(field);
        }
    }
    return ticks;
}

int open_fds(pid_t pid) {
    return count_entries("/proc/" + std::to_string(pid) + "/fd");
}

int thread_count(pid_t pid) {
    return count_entries("/proc/" + std::to_string(pid) + "/task");
}

double cpu_share_over(pid_t pid, std::chrono::milliseconds window,
                      const std::function<void()> &check) {
    const long before = cpu_ticks(pid);
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < window) {
        check();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    const long used = cpu_ticks(pid) - before;
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return static_cast<double>(used) / static_cast<double>(sysconf(_SC_CLK_TCK)) / elapsed;
}

} // namespace faults
