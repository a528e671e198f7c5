// SPDX-License-Identifier: BSD-3-Clause
// The flight recorder against the bus benchmark's live storm: the same
// learning churn, written through a pipeline as fast as the server takes it,
// received by a bare hiredis subscriber and by vvlanctl record (which also
// reads every value back), in alternating rounds on the same server. Its
// figures are ratios to that subscriber, measured in the same run, with the
// recorder's CPU, memory and bytes per event; and the speed of replay --fast
// when a daemon and replay are given.
//   dov_vvlan_recorder_bench [--small] [--out DIR]
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "../bus/bus_bench.h"
#include "../bus/daemon_run.h"
#include "testsupport/redis_server.h"

extern char **environ;

namespace {

using namespace busbench;

struct options {
    std::size_t events = 200000;
    int rounds = 7;
    std::string out = "recorder_bench";
    std::size_t replay_events = 2000;
};

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0.0 : v[v.size() / 2];
}

struct recorder_run {
    double seconds = 0;
    double cpu_seconds = 0;
    long max_rss_kib = 0;
    uint64_t bytes = 0;
};

// VmHWM of /proc/<pid>/status, in KiB; 0 when gone.
long peak_rss_kib(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return 0;
}

// The storm with vvlanctl record receiving it: from the first command sent
// to the recorder's exit at the count-th event.
// With settle, the recorder takes no count: settle runs after the storm
// and the recorder is stopped by SIGINT after it.
recorder_run record_storm(const std::string &socket, pipeline &load,
                          const std::vector<std::vector<std::string>> &churn,
                          const std::string &file, const std::function<void()> &settle = {}) {
    int err[2];
    if (pipe(err) != 0) {
        throw std::runtime_error("pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    const std::string count = std::to_string(churn.size());
    const char *argv[] = {
        DOV_VVLAN_RECORDER_BENCH_TOOL, "-s",          socket.c_str(), "record", "-o", file.c_str(),
        settle ? nullptr : "--count",  count.c_str(), nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, const_cast<char **>(argv), environ) != 0) {
        throw std::runtime_error("cannot start vvlanctl record");
    }
    posix_spawn_file_actions_destroy(&actions);
    close(err[1]);
    // Its first line comes once it is subscribed.
    std::string line;
    char c = 0;
    while (line.find('\n') == std::string::npos && read(err[0], &c, 1) == 1) {
        line.push_back(c);
    }
    if (line.find("recording") == std::string::npos) {
        throw std::runtime_error("vvlanctl record did not start: " + line);
    }
    const steady_clock::time_point start = steady_clock::now();
    for (const auto &command : churn) {
        load.add(0, command);
    }
    load.finish();
    if (settle) {
        settle();
        kill(pid, SIGINT);
    }
    // Its peak resident set as its own status shows it, read until it
    // exits (wait4's figure would count this process's pages, which a
    // spawned child shares until it executes).
    int status = 0;
    rusage usage{};
    long hwm = 0;
    while (wait4(pid, &status, WNOHANG, &usage) == 0) {
        hwm = std::max(hwm, peak_rss_kib(pid));
        usleep(1000);
    }
    recorder_run r;
    r.seconds = seconds_since(start);
    close(err[0]);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        throw std::runtime_error("vvlanctl record failed");
    }
    r.cpu_seconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                    static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    r.max_rss_kib = hwm;
    struct stat st {};
    if (stat(file.c_str(), &st) == 0) {
        r.bytes = static_cast<uint64_t>(st.st_size);
    }
    return r;
}

double hiredis_storm(const std::string &socket, pipeline &load,
                     const std::vector<std::vector<std::string>> &churn) {
    consumer_process consumer(consumer_kind::HIREDIS, socket, churn.size());
    consumer.go();
    for (const auto &command : churn) {
        load.add(0, command);
    }
    load.finish();
    return static_cast<double>(churn.size()) / consumer.finish();
}

// vvlanctl replay --fast of a recording to this tree's daemon: the events
// per second it reports (the barrier after each event included).
double replay_speed(const std::string &file) {
    const std::string out = file + ".replay";
    const std::string bin = testsupport::server_binary();
    const char *argv[] = {DOV_VVLAN_RECORDER_BENCH_TOOL,
                          "replay",
                          "--fast",
                          "--debug",
                          "0",
                          "--redis-server",
                          bin.c_str(),
                          "--trace",
                          "/dev/null",
                          file.c_str(),
                          "--",
                          DOV_VVLAN_RECORDER_BENCH_DAEMON,
                          nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, const_cast<char **>(argv), environ) != 0) {
        throw std::runtime_error("cannot start vvlanctl replay");
    }
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    waitpid(pid, &status, 0);
    std::ifstream in(out);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::size_t at = text.find(" events/s)");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || at == std::string::npos) {
        throw std::runtime_error("vvlanctl replay failed: " + text);
    }
    const std::size_t from = text.rfind('(', at);
    return std::strtod(text.c_str() + from + 1, nullptr);
}

int run(const options &o) {
    testsupport::redis_server server;
    server.start();
    const std::string socket = server.socket_path();
    pipeline load(socket);
    freeReplyObject(load.run(0, {"CONFIG", "SET", "client-output-buffer-limit", "pubsub 0 0 0"}));
    freeReplyObject(load.run(0, {"CONFIG", "SET", "notify-keyspace-events", "Kg$xe"}));
    const auto churn = learning_churn(o.events);
    mkdir(o.out.c_str(), 0755);
    const std::string file = o.out + "/storm.vvr";
    std::vector<double> ratios;
    std::vector<double> hiredis_rates;
    std::vector<double> recorder_rates;
    std::vector<double> cpu_us;
    long rss = 0;
    uint64_t bytes = 0;
    for (int round = 0; round < o.rounds; ++round) {
        const double h = hiredis_storm(socket, load, churn);
        const recorder_run r = record_storm(socket, load, churn, file);
        const double rate = static_cast<double>(churn.size()) / r.seconds;
        hiredis_rates.push_back(h);
        recorder_rates.push_back(rate);
        ratios.push_back(rate / h);
        cpu_us.push_back(r.cpu_seconds * 1e6 / static_cast<double>(churn.size()));
        rss = std::max(rss, r.max_rss_kib);
        bytes = r.bytes;
        std::fprintf(stderr, "recorder bench: round %d: hiredis %.0f/s, recorder %.0f/s\n",
                     round + 1, h, rate);
    }
    // Replay: the bus benchmark's full tables (voice VLAN 100, every OUI
    // slot, every port automatic) and the daemon running, then learnings
    // and agings of voice addresses, recorded and played back to a fresh
    // daemon.
    write_full_tables(load);
    {
        keyspace_observer observer(socket);
        daemon_run daemon(
            daemon_binary{
                "PC", DOV_VVLAN_RECORDER_BENCH_DAEMON, {}, DOV_VVLAN_RECORDER_BENCH_SYSROOT},
            socket, observer, load);
        daemon.start();
        const std::vector<std::vector<std::string>> played(churn.begin(),
                                                           churn.begin() + o.replay_events);
        record_storm(socket, load, played, file, [&] { daemon.barrier(); });
    }
    const double replayed = replay_speed(file);
    std::fprintf(stderr, "recorder bench: replay --fast %.0f events/s\n", replayed);

    const double n = static_cast<double>(churn.size());
    std::map<std::string, double> values = {
        {"replay_fast_events_per_s", replayed},
        {"events", n},
        {"hiredis_live_per_s", median(hiredis_rates)},
        {"recorder_live_per_s", median(recorder_rates)},
        {"recorder_to_hiredis", median(ratios)},
        {"recorder_cpu_us_per_event", median(cpu_us)},
        {"recorder_max_rss_kib", static_cast<double>(rss)},
        {"recording_bytes", static_cast<double>(bytes)},
        {"recording_bytes_per_10000_events", static_cast<double>(bytes) * 10000.0 / n},
    };
    std::printf("| Measure | Recorder | Ceiling | Ratio | Goal |\n|---|---|---|---|---|\n");
    std::printf(
        "| Live storm: %.0f learnings and agings, each batch's values read back | %.2f M/s | "
        "hiredis subscriber %.2f M/s | %.2f | ≥ 0.9: %s |\n",
        n, median(recorder_rates) / 1e6, median(hiredis_rates) / 1e6, median(ratios),
        median(ratios) >= 0.9 ? "met" : "**not met**");
    std::printf("| CPU per event (user + system) | %.2f µs | | | |\n", median(cpu_us));
    std::printf("| Largest resident set | %ld KiB | | | |\n", rss);
    std::printf("| replay --fast of %zu recorded learnings and agings to this tree's daemon | "
                "%.0f events/s | | | |\n",
                o.replay_events, replayed);
    std::printf("| Recording size | %.1f bytes per event; %.0f KiB per 10,000 events | | | |\n",
                static_cast<double>(bytes) / n, static_cast<double>(bytes) * 10000.0 / n / 1024);
    std::ofstream json(o.out + "/recorder_bench.json");
    json << "{";
    const char *sep = "";
    for (const auto &[name, value] : values) {
        json << sep << "\"" << name << "\": " << value;
        sep = ", ";
    }
    json << "}\n";
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 5 && std::strcmp(argv[1], "--consumer") == 0) {
        return consumer_main(consumer_kind::HIREDIS, argv[3], std::stoul(argv[4]));
    }
    options o;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--small") {
            o.events = 20000;
            o.rounds = 3;
            o.replay_events = 200;
        } else if (a == "--out" && i + 1 < argc) {
            o.out = argv[++i];
        } else {
            std::fprintf(stderr, "usage: dov_vvlan_recorder_bench [--small] [--out DIR]\n");
            return 2;
        }
    }
    try {
        return run(o);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "recorder bench: %s\n", e.what());
        return 1;
    }
}
