// SPDX-License-Identifier: BSD-3-Clause
// End to end, with a private redis-server and the real daemon: how many
// notifications per second the daemon keeps up with, what reading a value
// adds, how long a full re-synchronisation takes, and the daemon's memory.
//
//   dov_vvlan_e2e [--count N] [--daemon PATH] [--emulator PROG,ARG,...]
//
// The daemon must have been built with a private file prefix (the build's
// DOV_VVLAN_SYSROOT), and no other instance of it may run meanwhile.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "daemon_process.h"
#include "records.h"
#include "testsupport/eventually.h"
#include "testsupport/redis_client.h"
#include "testsupport/redis_server.h"

namespace {

using clock_type = std::chrono::steady_clock;
using namespace std::chrono_literals;

std::vector<std::string> split(const std::string &text) {
    std::vector<std::string> out;
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, ',')) {
        out.push_back(item);
    }
    return out;
}

std::string proc_field(pid_t pid, const std::string &field) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return line.substr(field.size() + 1);
        }
    }
    return "?";
}

// CPU seconds the process has used (user + system).
double cpu_seconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    long ticks = 0;
    for (int i = 1; i <= 15 && in >> field; ++i) {
        if (i == 14 || i == 15) {
            ticks += std::stol(field);
        }
    }
    return static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

struct bench {
    testsupport::redis_server server;
    std::unique_ptr<testsupport::redis_client> client;
    std::unique_ptr<integration::daemon_process> daemon;
    int marker = 0;

    // The load-complete marker comes back once everything before it is
    // handled.
    double barrier_seconds(clock_type::time_point since) {
        const std::string value = std::to_string(++marker);
        client->set(1, "/bridge/vvlan/data/end", value);
        const bool copied = testsupport::eventually(
            [&] { return client->get(0, "/bridge/vvlan/data/end") == value || !daemon->running(); },
            600s, 1ms);
        if (!copied || !daemon->running()) {
            std::fprintf(stderr, "the daemon stopped or fell behind (exit status %d):\n%s",
                         daemon->wait_exit(0ms), daemon->stderr_text().c_str());
            std::exit(1);
        }
        return std::chrono::duration<double>(clock_type::now() - since).count();
    }

    // Commands in one pipeline, so the client is not what is measured.
    void pipeline(int db, const std::vector<std::vector<std::string>> &commands) {
        const int batch = 1000;
        for (std::size_t i = 0; i < commands.size(); i += batch) {
            client->command(db, {"MULTI"});
            for (std::size_t j = i; j < std::min(commands.size(), i + batch); ++j) {
                client->command(db, commands[j]);
            }
            client->command(db, {"EXEC"});
        }
    }
};

} // namespace

int main(int argc, char **argv) {
    int count = 20000;
    std::string daemon_path = DOV_VVLAN_E2E_DAEMON;
    std::vector<std::string> emulator;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--count" && i + 1 < argc) {
            count = std::stoi(argv[++i]);
        } else if (arg == "--daemon" && i + 1 < argc) {
            daemon_path = argv[++i];
        } else if (arg == "--emulator" && i + 1 < argc) {
            emulator = split(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: %s [--count N] [--daemon PATH] [--emulator P,A,...]\n",
                         argv[0]);
            return 2;
        }
    }
    const std::string prefix = DOV_VVLAN_E2E_SYSROOT;
    for (const char *d : {"/var", "/var/run", "/data", "/var/tmp"}) {
        mkdir((prefix + d).c_str(), 0755);
    }
    unlink((prefix + "/var/tmp/dov_vvlan_dbg").c_str());

    bench b;
    b.server.start();
    b.client = std::make_unique<testsupport::redis_client>(b.server.socket_path());
    // A full configuration: 124 OUIs, 53 automatic ports, 128 MAC-VLAN entries.
    for (int i = 0; i < 124; ++i) {
        const testcommon::mac6 mac{0x02, static_cast<uint8_t>(i), 0, 0, 0, 0};
        char key[80];
        std::snprintf(key, sizeof key, "/bridge/vvlan/oui_oper/02%02x00000000/ffffff000000", i);
        b.client->set(1, key, testcommon::oui_value(mac, {0xff, 0xff, 0xff, 0, 0, 0}));
    }
    for (uint32_t ifx = 0; ifx < 53; ++ifx) {
        b.client->set(1, "/bridge/vvlan/port_oper/" + std::to_string(ifx) + "/1",
                      testcommon::port_oper_value(ifx, 1, 1));
    }
    for (int n = 256; n < 384; ++n) {
        b.client->set(
            1, "/bridge/mac_vlan/table/" + std::to_string(n),
            testcommon::mac_vlan_bytes({0x02, 0x05, 0, 0, 0, 1}, {0xff, 0xff, 0xff, 0, 0, 0}, 100));
    }
    b.client->set(1, "/bridge/vvlan/vid/100", "");
    b.client->set(1, "/bridge/vvlan/age_timer/1", testcommon::be16_bytes(1440));

    integration::daemon_options options;
    options.binary = daemon_path;
    options.emulator = emulator;
    options.env = {{"TUKREDIS_SOCKET", b.server.socket_path()}};
    options.stderr_path = b.server.dir() + "/daemon.err";
    b.daemon = std::make_unique<integration::daemon_process>(options);
    const auto started = clock_type::now();
    b.daemon->start();
    const double startup = b.barrier_seconds(started);
    std::printf("daemon: %s%s\n", emulator.empty() ? "" : (emulator[0] + " ").c_str(),
                daemon_path.c_str());
    std::printf("start-up and re-synchronisation of 124 OUIs, 53 ports, 128 MAC-VLAN "
                "entries: %.1f ms\n",
                startup * 1e3);

    // The hot path: a phone learned and aged on a joined port, again and again.
    b.client->set(0, "/bri/mac/macTblDyn_vvlan/100/6/02050000aa01", "");
    b.barrier_seconds(clock_type::now());
    std::vector<std::vector<std::string>> churn;
    for (int i = 0; i < count / 2; ++i) {
        churn.push_back({"DEL", "/bri/mac/macTblDyn_vvlan/100/6/02050000aa01"});
        churn.push_back({"SET", "/bri/mac/macTblDyn_vvlan/100/6/02050000aa01", ""});
    }
    const pid_t pid = b.daemon->pid();
    auto t0 = clock_type::now();
    double cpu0 = cpu_seconds(pid);
    b.pipeline(0, churn);
    double seconds = b.barrier_seconds(t0);
    std::printf("learned/aged addresses on a joined port: %d notifications in %.3f s, "
                "%.0f per second; daemon CPU %.1f us each\n",
                count, seconds, count / seconds, (cpu_seconds(pid) - cpu0) * 1e6 / count);

    // Learnings in another VLAN: dropped at the first check.
    std::vector<std::vector<std::string>> other;
    for (int i = 0; i < count; ++i) {
        other.push_back(
            {"SET", "/bri/mac/macTblDyn_vvlan/200/6/0205000000" + std::to_string(10 + i % 80), ""});
    }
    t0 = clock_type::now();
    cpu0 = cpu_seconds(pid);
    b.pipeline(0, other);
    seconds = b.barrier_seconds(t0);
    std::printf("learnings in another VLAN:               %d notifications in %.3f s, "
                "%.0f per second; daemon CPU %.1f us each\n",
                count, seconds, count / seconds, (cpu_seconds(pid) - cpu0) * 1e6 / count);

    // Writes whose handler reads the value: one GET round trip each.
    const int reads = count / 4;
    std::vector<std::vector<std::string>> cos;
    for (int i = 0; i < reads; ++i) {
        cos.push_back(
            {"SET", "/bridge/vvlan/cos_dscp/1", std::string{5, static_cast<char>(i % 64)}});
    }
    t0 = clock_type::now();
    cpu0 = cpu_seconds(pid);
    b.pipeline(1, cos);
    seconds = b.barrier_seconds(t0);
    std::printf("CoS/DSCP writes (value read, one write): %d notifications in %.3f s, "
                "%.0f per second; daemon CPU %.1f us each\n",
                reads, seconds, reads / seconds, (cpu_seconds(pid) - cpu0) * 1e6 / reads);

    std::printf("daemon memory: VmRSS %s, VmHWM %s, VmData %s\n", proc_field(pid, "VmRSS").c_str(),
                proc_field(pid, "VmHWM").c_str(), proc_field(pid, "VmData").c_str());
    return 0;
}
