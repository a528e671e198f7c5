// SPDX-License-Identifier: BSD-3-Clause
// The bus benchmark: how fast the daemon drains MAC-learning notifications,
// how quickly it joins a port, how long its re-synchronisation takes, and its
// memory, each against a ceiling measured in the same run on the same
// redis-server.
//
//   dov_vvlan_bus_bench [--small] [--out STEM] [--daemon PATH --sysroot DIR]
//                       [--target-daemon PATH --target-sysroot DIR [--target-libc DIR]]
//
// Writes STEM.json, STEM.md and STEM.png. --small is the CTest configuration.
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>

#include "measures.h"
#include "testsupport/redis_server.h"

using namespace busbench;

namespace {

struct bench_options {
    size_t notifications = 200000;
    // The p99 of 600 joins rests on its 6 slowest; one stall of the machine
    // moves it. 3000 put 30 samples above it.
    size_t joins = 3000;
    size_t memory_notifications = 1000000;
    std::vector<size_t> mac_tables = {10000, 100000, 400000};
    int runs = 5;
    std::string out = "bus_bench";
    daemon_binary pc{"PC", DOV_VVLAN_BUS_BENCH_DAEMON, {}, DOV_VVLAN_BUS_BENCH_SYSROOT};
    std::optional<daemon_binary> mips;
    std::string target_libc = "/usr/mips-linux-gnu";
};

bench_options parse(int argc, char **argv) {
    bench_options o;
    std::string target_path;
    std::string target_sysroot;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const auto value = [&]() -> std::string {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "%s needs a value\n", arg.c_str());
                std::exit(2);
            }
            return argv[++i];
        };
        if (arg == "--small") {
            o.notifications = 20000;
            o.joins = 300;
            o.memory_notifications = 100000;
            o.mac_tables = {1000, 5000};
            o.runs = 1;
        } else if (arg == "--out") {
            o.out = value();
        } else if (arg == "--daemon") {
            o.pc.path = value();
        } else if (arg == "--sysroot") {
            o.pc.sysroot = value();
        } else if (arg == "--target-daemon") {
            target_path = value();
        } else if (arg == "--target-sysroot") {
            target_sysroot = value();
        } else if (arg == "--target-libc") {
            o.target_libc = value();
        } else {
            std::fprintf(stderr,
                         "usage: %s [--small] [--out STEM] [--daemon PATH --sysroot DIR] "
                         "[--target-daemon PATH --target-sysroot DIR]\n",
                         argv[0]);
            std::exit(2);
        }
    }
    if (!target_path.empty()) {
        o.mips = daemon_binary{"MIPS (qemu-mips)",
                               target_path,
                               {DOV_VVLAN_BUS_BENCH_QEMU, "-L", o.target_libc},
                               target_sysroot};
    }
    return o;
}

std::string machine_line(pipeline &load) {
    std::string cpu = "?";
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("model name", 0) == 0) {
            cpu = line.substr(line.find(':') + 2);
            break;
        }
    }
    utsname names{};
    uname(&names);
    redisReply *reply = load.run(0, {"INFO", "server"});
    std::string version = "?";
    const std::string text(reply->str, reply->len);
    const size_t at = text.find("redis_version:");
    if (at != std::string::npos) {
        version = text.substr(at + 14, text.find('\r', at) - at - 14);
    }
    freeReplyObject(reply);
    double average[1] = {0};
    getloadavg(average, 1);
    char busy[32];
    std::snprintf(busy, sizeof busy, "%.1f", average[0]);
    return std::to_string(sysconf(_SC_NPROCESSORS_ONLN)) + " cores (" + cpu + "), Linux " +
           names.release + ", redis-server " + version + ", Unix socket; load average " + busy +
           " at the start";
}

int run(const bench_options &o);

// The joins' and their PINGs' p50 and p99 under tag.
void record_joins(bench_report &r, const std::string &tag, const join_samples &joins) {
    const percentiles join = distribution(joins.join_us);
    const percentiles ping = distribution(joins.ping_us);
    r.values[tag + "join_p50_us"] = join.p50;
    r.values[tag + "join_p99_us"] = join.p99;
    r.values[tag + "ping_p50_us"] = ping.p50;
    r.values[tag + "ping_p99_us"] = ping.p99;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 5 && std::strcmp(argv[1], "--consumer") == 0) {
        const std::string kind = argv[2];
        const consumer_kind k = kind == "hiredis" ? consumer_kind::HIREDIS
                                : kind == "raw"   ? consumer_kind::RAW
                                : kind == "relay" ? consumer_kind::RELAY
                                                  : consumer_kind::BUS;
        return consumer_main(k, argv[3], std::stoul(argv[4]));
    }
    try {
        return run(parse(argc, argv));
    } catch (const std::exception &e) {
        std::fprintf(stderr, "bus bench: %s\n", e.what());
        return 1;
    }
}

namespace {

int run(const bench_options &o) {
    testsupport::redis_server server;
    server.start();
    const std::string socket = server.socket_path();
    pipeline load(socket);
    // A paused consumer's backlog stays whole: the default pub/sub limit
    // (32 MB) would cut it off, which is the failure drain speed avoids.
    freeReplyObject(load.run(0, {"CONFIG", "SET", "client-output-buffer-limit", "pubsub 0 0 0"}));
    freeReplyObject(load.run(0, {"CONFIG", "SET", "notify-keyspace-events", "Kg$xe"}));
    write_full_tables(load);
    keyspace_observer observer(socket);
    bench_report r;
    r.machine = machine_line(load);
    const auto churn = learning_churn(o.notifications);
    const double n = static_cast<double>(o.notifications);
    r.values["notifications"] = n;
    std::fprintf(stderr, "bus bench: %s\n", r.machine.c_str());

    pipeline pings(socket);
    std::vector<double> bare_rt;
    for (int i = 0; i < 5; ++i) {
        bare_rt.push_back(bare_resync(socket, false, 1000));
    }
    r.values["bare_resync_round_trips_ms"] = median(bare_rt) * 1e3;

    // The daemons: drains, joins, re-synchronisation of full tables, memory.
    // The ceilings are measured in the same rounds, interleaved with the
    // daemon's drains, so that a busy moment of the machine falls on both;
    // the daemon is stopped meanwhile and catches up before its own turn.
    const auto run_daemon = [&](const daemon_binary &binary, const std::string &tag,
                                bool ceilings) {
        daemon_run daemon(binary, socket, observer, load);
        std::vector<double> resync;
        for (int i = 0; i < std::max(o.runs, 3); ++i) {
            daemon.stop();
            resync.push_back(daemon.start());
        }
        r.values[tag + "resync_full_ms"] = median(resync) * 1e3;
        // The pipelined bare client runs next to each cut, the daemon paused
        // meanwhile: round trips cost five times more when the machine's
        // cores fall idle between them than when they stay busy, and a
        // ceiling measured a minute apart can land on the other side.
        std::vector<double> cut;
        std::vector<double> bare_pipe;
        std::vector<double> cut_to_bare;
        for (int i = 0; i < std::max(o.runs, 3); ++i) {
            cut.push_back(daemon.resync_after_cut());
            daemon.pause();
            bare_pipe.push_back(bare_resync(socket, true, 1000));
            daemon.resume();
            daemon.barrier();
            cut_to_bare.push_back(cut.back() / bare_pipe.back());
        }
        r.values[tag + "resync_after_cut_ms"] = median(cut) * 1e3;
        r.values[tag + "bare_resync_pipelined_ms"] = median(bare_pipe) * 1e3;
        r.values[tag + "resync_after_cut_to_bare"] = median(cut_to_bare);
        const long rss_start = daemon.rss_kib();
        load.add(0, {"SET", learned_key(6, 0xffff0000U), ""});
        daemon.barrier();
        size_t handled = 0;
        std::map<std::string, std::vector<double>> runs;
        for (int round = 0; round < o.runs; ++round) {
            if (ceilings) {
                daemon.pause();
                for (const consumer_kind kind :
                     {consumer_kind::HIREDIS, consumer_kind::RAW, consumer_kind::BUS}) {
                    for (const bool backlog : {true, false}) {
                        runs[std::string(consumer_name(kind)) + (backlog ? "_backlog" : "_live")]
                            .push_back(ceiling_rate(kind, socket, load, churn, backlog));
                    }
                }
                daemon.resume();
                daemon.barrier();
            }
            for (const bool backlog : {true, false}) {
                runs[tag + (backlog ? "daemon_backlog" : "daemon_live")].push_back(
                    daemon_rate(daemon, load, churn, backlog));
                handled += churn.size();
            }
        }
        for (const auto &[name, values] : runs) {
            r.values[name + "_per_s"] = median(values);
            std::fprintf(stderr, "bus bench: %s %.0f/s\n", name.c_str(), median(values));
        }
        // Each round's daemon against the hiredis subscriber of the same
        // round: the machine's busy moments move both, and the median of
        // the rounds' ratios moves less than the ratio of two medians.
        if (ceilings) {
            for (const std::string mode : {"_backlog", "_live"}) {
                const std::vector<double> &daemon_rates = runs[tag + "daemon" + mode];
                const std::vector<double> &hiredis_rates = runs["hiredis" + mode];
                std::vector<double> ratios;
                for (size_t i = 0; i < std::min(daemon_rates.size(), hiredis_rates.size()); ++i) {
                    ratios.push_back(daemon_rates[i] / hiredis_rates[i]);
                }
                r.values[tag + "daemon" + mode + "_to_hiredis"] = median(ratios);
            }
        }
        const join_samples joins = join_latencies(load, observer, pings, o.joins);
        record_joins(r, tag, joins);
        if (tag.empty()) {
            r.join_us = joins.join_us;
            r.ping_us = joins.ping_us;
            r.values["rss_start_kib"] = static_cast<double>(rss_start);
            while (handled < o.memory_notifications) {
                daemon_rate(daemon, load, churn, false);
                handled += churn.size();
            }
            r.values["rss_after_kib"] = static_cast<double>(daemon.rss_kib());
            r.values["rss_after_notifications"] = static_cast<double>(handled);
        }
    };
    run_daemon(o.pc, "", true);
    {
        // No daemon runs now: the relay alone answers the learnings.
        consumer_process relay(consumer_kind::RELAY, socket, 0);
        record_joins(r, "relay_", relay_latencies(load, observer, pings, o.joins));
    }
    if (o.mips) {
        run_daemon(*o.mips, "mips_", false);
    }

    // Re-synchronisation with the MAC table in database 0.
    size_t held = 0;
    for (const size_t keys : o.mac_tables) {
        fill_mac_table(load, held, keys);
        daemon_run daemon(o.pc, socket, observer, load);
        const steady_clock::time_point started = steady_clock::now();
        const double to_marker = daemon.start();
        const steady_clock::time_point serving = daemon.barrier();
        const std::string tag = "mac" + std::to_string(keys) + "_";
        r.values[tag + "resync_marker_ms"] = to_marker * 1e3;
        r.values[tag + "resync_serving_ms"] =
            std::chrono::duration<double, std::milli>(serving - started).count();
        daemon.stop();
        r.values[tag + "bare_pipelined_ms"] = bare_resync(socket, true, 1000) * 1e3;
    }

    fill_report(r, o.mac_tables, o.mips.has_value());
    write_report(r, o.out);
    return 0;
}

} // namespace
