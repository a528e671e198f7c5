// SPDX-License-Identifier: BSD-3-Clause
// How long vvlanctl's show and check take on full tables, against a private
// redis-server: 124 OUIs, 53 automatic ports (all joined), 128 MAC-VLAN
// entries and 10,000 learned addresses. Each run is the whole program, as
// an operator starts it: process start, connection, both databases read,
// output written.
//
//   vvlanctl_bench [--runs N] [--tool PATH]
//
// Wall times (min, median, max) and the tool's median CPU time (user and
// system): on a busy machine the CPU time is the steadier figure.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "testsupport/redis_client.h"
#include "testsupport/redis_server.h"
#include "wire/keys.h"
#include "wire/values.h"

extern char **environ;

namespace {

constexpr int OUIS = 124;
constexpr int PORTS = 53;
constexpr int MAC_VLANS = 128;
constexpr int LEARNED = 10000;
constexpr uint16_t VOICE_VID = 100;

template <std::size_t N>
std::string text_of(const std::array<uint8_t, N> &bytes) {
    return std::string(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

mac_addr oui_of(int slot) {
    return mac_addr{0x00, 0x10, static_cast<uint8_t>(slot), 0, 0, 0};
}

const mac_addr MASK_24{0xff, 0xff, 0xff, 0, 0, 0};

// Both databases as the management plane, the forwarding layer and the
// daemon leave them on a busy, healthy switch.
void fill(testsupport::redis_client &r) {
    r.set(1, vid_key(VOICE_VID).c_str(), "");
    r.set(0, vid_key(VOICE_VID).c_str(), text_of(pre_entry_idx_codec::encode(0)));
    r.set(1, "/bridge/vvlan/secu_mode/1", "");
    r.set(0, family_key(key_family::secu_mode).c_str(), "1");
    r.set(1, "/bridge/vvlan/cos_dscp/1", text_of(cos_dscp_codec::encode({5, 46})));
    r.set(0, family_key(key_family::cos_dscp).c_str(),
          text_of(cos_dscp_echo_codec::encode({0, 5, 46})));
    r.set(1, "/bridge/vvlan/age_timer/1", text_of(aging_time_codec::encode(30)));
    for (int slot = 0; slot < OUIS; ++slot) {
        vvlan_oui_oper rec{};
        rec.mac = oui_of(slot);
        rec.mask = MASK_24;
        rec.enable = 1;
        r.set(1, oui_oper_key(rec.mac, rec.mask).c_str(), text_of(oui_oper_codec::encode(rec)));
        r.set(0, oui_echo_key(rec.mac, rec.mask, static_cast<uint16_t>(slot)).c_str(),
              text_of(oui_echo_codec::encode({0, rec})));
    }
    for (int ifx = 0; ifx < PORTS; ++ifx) {
        const auto u = static_cast<uint32_t>(ifx);
        r.set(1, port_oper_key(ifx, 1).c_str(),
              text_of(port_oper_codec::encode({u, 1, PORT_MODE_AUTO})));
        r.set(0, port_oper_key(ifx, 1).c_str(), text_of(pre_entry_idx_codec::encode(0)));
        r.set(0, port_oper_key(ifx, 2).c_str(), text_of(pre_entry_idx_codec::encode(0)));
        r.set(1, join_request_key(ifx).c_str(), text_of(join_request_codec::encode(u)));
    }
    for (int n = 0; n < LEARNED; ++n) {
        mac_addr mac = oui_of(n % OUIS);
        mac[3] = static_cast<uint8_t>(n >> 8);
        mac[4] = static_cast<uint8_t>(n);
        mac[5] = 0x01;
        // phyid p is port p-1 on the host device manager's default map.
        r.set(0, mac_learning_key(VOICE_VID, 1 + n % PORTS, mac).c_str(), "");
    }
    for (int i = 0; i < MAC_VLANS; ++i) {
        mac_vlan_value v{};
        v.mac = oui_of(i % OUIS);
        v.mac[5] = 0x07;
        v.mask = MASK_24;
        v.vid = VOICE_VID;
        r.set(0, mac_vlan_key(MAC_VLAN_KEY_BASE + i).c_str(), text_of(mac_vlan_codec::encode(v)));
        r.set(0, mvlan_oui_msg_key(static_cast<uint16_t>(i % OUIS)).c_str(),
              std::to_string(i % OUIS));
    }
}

struct timing {
    double ms;     // wall time
    double cpu_ms; // user and system time of the tool
    int status;
};

// One whole run of the tool, its output thrown away.
timing run_once(const std::vector<std::string> &argv) {
    std::vector<char *> args;
    for (const std::string &a : argv) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    args.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = -1;
    if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return {0, 0, -1};
    }
    int raw = 0;
    rusage usage{};
    wait4(pid, &raw, 0, &usage);
    const auto end = std::chrono::steady_clock::now();
    posix_spawn_file_actions_destroy(&actions);
    auto ms = [](const timeval &t) { return t.tv_sec * 1000.0 + t.tv_usec / 1000.0; };
    return {std::chrono::duration<double, std::milli>(end - start).count(),
            ms(usage.ru_utime) + ms(usage.ru_stime),
            WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw)};
}

} // namespace

int main(int argc, char **argv) {
    int runs = 20;
    std::string tool = VVLANCTL_BENCH_TOOL;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--runs") == 0) {
            runs = std::max(1, std::atoi(argv[i + 1]));
        } else if (std::strcmp(argv[i], "--tool") == 0) {
            tool = argv[i + 1];
        }
    }
    testsupport::redis_server server;
    server.start();
    testsupport::redis_client client(server.socket_path());
    const auto fill_start = std::chrono::steady_clock::now();
    fill(client);
    // A stand-in for the daemon's subscription (its name and pattern count),
    // so that check audits the tables rather than stopping at a daemon that
    // is not there.
    testsupport::redis_client daemon_stand_in(server.socket_path());
    daemon_stand_in.command({"CLIENT", "SETNAME", "tukredis"});
    std::vector<std::string> patterns{"PSUBSCRIBE"};
    for (int i = 0; i < 11; ++i) {
        patterns.push_back("__keyspace@1__:/bench/" + std::to_string(i) + "/*");
    }
    daemon_stand_in.command(patterns);
    std::printf(
        "filled: %d OUIs, %d ports, %d MAC-VLAN entries, %d learned addresses "
        "(%lld keys in database 0) in %.0f ms\n",
        OUIS, PORTS, MAC_VLANS, LEARNED, static_cast<long long>(client.keys(0, "*").size()),
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - fill_start)
            .count());
    std::printf("%-14s %5s %9s %9s %9s %9s  %s\n", "command", "runs", "min ms", "median ms",
                "max ms", "cpu ms", "status");
    int failures = 0;
    for (const std::vector<std::string> &cmd : std::vector<std::vector<std::string>>{
             {"show"}, {"show", "--json"}, {"check"}, {"check", "--json"}}) {
        std::vector<std::string> full{tool, "-s", server.socket_path()};
        full.insert(full.end(), cmd.begin(), cmd.end());
        std::vector<double> ms;
        std::vector<double> cpu;
        int status = 0;
        for (int i = 0; i < runs; ++i) {
            const timing t = run_once(full);
            ms.push_back(t.ms);
            cpu.push_back(t.cpu_ms);
            status = std::max(status, t.status);
        }
        std::sort(ms.begin(), ms.end());
        std::sort(cpu.begin(), cpu.end());
        std::string name = cmd[0] + (cmd.size() > 1 ? " " + cmd[1] : "");
        std::printf("%-14s %5d %9.1f %9.1f %9.1f %9.1f  %d\n", name.c_str(), runs, ms.front(),
                    ms[ms.size() / 2], ms.back(), cpu[cpu.size() / 2], status);
        // Full healthy tables: every run must succeed and find nothing.
        failures += status != 0 ? 1 : 0;
    }
    return failures == 0 ? 0 : 1;
}
