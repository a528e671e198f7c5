// SPDX-License-Identifier: BSD-3-Clause
// The benchmark's outputs: a JSON file of every figure, a markdown table of
// the measures against their ceilings and goals, and a plot of the drain
// rates and the latency distributions.
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "bus_bench.h"

extern char **environ;

namespace busbench {
namespace {

std::string fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

std::string millions(double per_second) {
    return fixed(per_second / 1e6, 2) + " M/s";
}

std::string verdict(bool met) {
    return met ? "met" : "**not met**";
}

double at(const bench_report &r, const std::string &name) {
    const auto found = r.values.find(name);
    return found == r.values.end() ? 0.0 : found->second;
}

// A join latency row: the joins recorded under tag against the PINGs timed
// beside them.
report_row join_row(const bench_report &r, const std::string &tag, const std::string &measure,
                    const std::string &goal) {
    const double join50 = at(r, tag + "join_p50_us");
    const double join99 = at(r, tag + "join_p99_us");
    const double ping50 = at(r, tag + "ping_p50_us");
    const double ping99 = at(r, tag + "ping_p99_us");
    return {measure, fixed(join50, 0) + " / " + fixed(join99, 0) + " µs",
            "PING round trip before each join " + fixed(ping50, 0) + " / " + fixed(ping99, 0) +
                " µs",
            fixed(join50 / ping50, 1) + "× / " + fixed(join99 / ping99, 1) + "×", goal};
}

std::string escaped(const std::string &text) {
    std::string out;
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out.push_back('\\');
        }
        out.push_back(c);
    }
    return out;
}

void write_cdf(const std::string &path, std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    std::ofstream out(path);
    for (size_t i = 0; i < samples.size(); ++i) {
        out << samples[i] << ' ' << static_cast<double>(i + 1) / static_cast<double>(samples.size())
            << '\n';
    }
}

} // namespace

void fill_report(bench_report &r, const std::vector<size_t> &mac_tables, bool mips) {
    const double n = at(r, "notifications");
    const double backlog = at(r, "daemon_backlog_per_s");
    const double hiredis = at(r, "hiredis_backlog_per_s");
    const double raw = at(r, "raw_backlog_per_s");
    const double bus = at(r, "bus_backlog_per_s");
    // The goal's ratio is the median of the rounds' own ratios (see main).
    const double backlog_ratio = at(r, "daemon_backlog_to_hiredis");
    r.rows.push_back(
        {"Backlog drain: " + fixed(n, 0) + " learnings queued while stopped", millions(backlog),
         "hiredis subscriber " + millions(hiredis) + "; raw reader " + millions(raw) +
             "; bus library, empty handlers " + millions(bus),
         fixed(backlog_ratio, 2) + "; " + fixed(backlog / raw, 2) + "; " + fixed(backlog / bus, 2),
         "≥ 0.9 × hiredis subscriber: " + verdict(backlog_ratio >= 0.9)});
    const double live = at(r, "daemon_live_per_s");
    const double hiredis_live = at(r, "hiredis_live_per_s");
    const double live_ratio = at(r, "daemon_live_to_hiredis");
    r.rows.push_back({"Live storm: the same learnings while running", millions(live),
                      "hiredis subscriber " + millions(hiredis_live) + "; raw reader " +
                          millions(at(r, "raw_live_per_s")) + "; bus library " +
                          millions(at(r, "bus_live_per_s")),
                      fixed(live_ratio, 2),
                      "at the server's limit (≥ 0.9): " + verdict(live_ratio >= 0.9)});
    const double join99 = at(r, "join_p99_us");
    const double ping99 = at(r, "ping_p99_us");
    const double relay99 = at(r, "relay_join_p99_us");
    r.rows.push_back(join_row(r, "",
                              "Join latency p50 / p99: learning written → join request event",
                              "p99 ≤ 2 × PING p99: " + verdict(join99 <= 2 * ping99)));
    r.rows.push_back(join_row(r, "relay_",
                              "The same join answered by a bare hiredis relay (the daemon's two "
                              "writes, nothing else), no daemon running",
                              "the floor of the join on this machine; daemon p99 / relay p99 " +
                                  fixed(join99 / relay99, 2)));
    const double resync = at(r, "resync_full_ms");
    const double cut = at(r, "resync_after_cut_ms");
    const double bare_rt = at(r, "bare_resync_round_trips_ms");
    const double bare_pipe = at(r, "bare_resync_pipelined_ms");
    // The median of each cut's ratio to the bare client run beside it.
    const double cut_ratio = at(r, "resync_after_cut_to_bare");
    r.rows.push_back({"Re-synchronisation of full tables (124 OUIs, 53 ports, 128 MAC-VLAN "
                      "entries) to the marker's copy: from a cut connection / from the "
                      "process start",
                      fixed(cut, 1) + " / " + fixed(resync, 1) + " ms",
                      "bare client, a round trip per command " + fixed(bare_rt, 1) +
                          " ms; pipelined per SCAN batch " + fixed(bare_pipe, 1) + " ms",
                      fixed(cut / bare_rt, 2) + "; " + fixed(cut_ratio, 2) + " (from the cut)",
                      "≤ 1.5 × pipelined: " + verdict(cut_ratio <= 1.5)});
    double previous = 0;
    for (const size_t keys : mac_tables) {
        const std::string tag = "mac" + std::to_string(keys) + "_";
        const double marker = at(r, tag + "resync_marker_ms");
        const double serving = at(r, tag + "resync_serving_ms");
        const double bare = at(r, tag + "bare_pipelined_ms");
        r.rows.push_back({"The same with " + std::to_string(keys) +
                              " MAC-learning keys in database 0: to the marker / serving again",
                          fixed(marker, 0) + " / " + fixed(serving, 0) + " ms",
                          "bare client, pipelined " + fixed(bare, 0) + " ms",
                          fixed(serving / bare, 2),
                          previous > 0 ? "grows " + fixed(serving / previous, 1) +
                                             "× from the "
                                             "row above"
                                       : "times and growth"});
        previous = serving;
    }
    const double rss0 = at(r, "rss_start_kib");
    const double rss1 = at(r, "rss_after_kib");
    r.rows.push_back({"Daemon RSS: after start-up / after " +
                          fixed(at(r, "rss_after_notifications"), 0) + " notifications",
                      fixed(rss0 / 1024, 2) + " / " + fixed(rss1 / 1024, 2) + " MiB", "4 MiB",
                      fixed(rss1 / 4096, 2),
                      "≤ 4 MiB and flat: " + verdict(rss1 <= 4096 && rss1 <= rss0 * 1.05)});
    if (mips) {
        const double mb = at(r, "mips_daemon_backlog_per_s");
        const double ml = at(r, "mips_daemon_live_per_s");
        const double mj = at(r, "mips_join_p99_us");
        r.rows.push_back({"MIPS daemon under qemu-mips (emulation): backlog drain / live / join "
                          "p99",
                          millions(mb) + " / " + millions(ml) + " / " + fixed(mj, 0) + " µs",
                          "the PC daemon above",
                          fixed(mb / backlog, 2) + " / " + fixed(ml / live, 2) + " / " +
                              fixed(mj / join99, 1) + "×",
                          "a regression shows as a change of these ratios"});
    }
}

void write_report(const bench_report &r, const std::string &stem) {
    {
        std::ofstream json(stem + ".json");
        json << "{\n  \"machine\": \"" << escaped(r.machine) << "\",\n  \"values\": {\n";
        size_t i = 0;
        for (const auto &[name, value] : r.values) {
            json << "    \"" << name << "\": " << fixed(value, 3)
                 << (++i < r.values.size() ? ",\n" : "\n");
        }
        json << "  },\n  \"rows\": [\n";
        for (size_t j = 0; j < r.rows.size(); ++j) {
            const report_row &row = r.rows[j];
            json << "    {\"measure\": \"" << escaped(row.measure) << "\", \"daemon\": \""
                 << escaped(row.daemon) << "\", \"ceiling\": \"" << escaped(row.ceiling)
                 << "\", \"ratio\": \"" << escaped(row.ratio) << "\", \"goal\": \""
                 << escaped(row.goal) << "\"}" << (j + 1 < r.rows.size() ? ",\n" : "\n");
        }
        json << "  ]\n}\n";
    }
    std::ofstream md(stem + ".md");
    md << "Machine: " << r.machine << "\n\n"
       << "| Measure | Daemon | Ceiling | Ratio | Goal |\n|---|---|---|---|---|\n";
    for (const report_row &row : r.rows) {
        md << "| " << row.measure << " | " << row.daemon << " | " << row.ceiling << " | "
           << row.ratio << " | " << row.goal << " |\n";
    }
    md.close();
    std::ifstream back(stem + ".md");
    std::printf("%s", std::string(std::istreambuf_iterator<char>(back), {}).c_str());

    {
        std::ofstream drain(stem + "-drain.dat");
        drain << "# consumer, backlog and live (million per second)\n";
        for (const char *name : {"hiredis", "raw", "bus", "daemon", "mips_daemon"}) {
            const std::string key = name;
            if (r.values.count(key + "_backlog_per_s") != 0) {
                drain << '"' << key << "\" " << at(r, key + "_backlog_per_s") / 1e6 << ' '
                      << at(r, key + "_live_per_s") / 1e6 << '\n';
            }
        }
    }
    write_cdf(stem + "-join.dat", r.join_us);
    write_cdf(stem + "-ping.dat", r.ping_us);
    {
        std::ofstream gp(stem + ".gp");
        gp << "set terminal pngcairo noenhanced size 1200,480\nset output '" << stem << ".png'\n"
           << "set multiplot layout 1,2\n"
           << "set title 'Drain rate, million notifications per second'\n"
           << "set style data histograms\nset style histogram clustered\n"
           << "set style fill solid 0.8\nset key top right\nset yrange [0:*]\n"
           << "plot '" << stem << "-drain.dat' using 2:xtic(1) title 'backlog', '' using 3 "
           << "title 'live'\n"
           << "set title 'Latency distribution'\nset xlabel 'microseconds'\n"
           << "set ylabel 'fraction'\nset logscale x\nset key bottom right\n"
           << "plot '" << stem << "-join.dat' using 1:2 with lines lw 2 title 'join', '" << stem
           << "-ping.dat' using 1:2 with lines lw 2 title 'PING'\n";
    }
    const std::string script = stem + ".gp";
    const char *argv[] = {"gnuplot", script.c_str(), nullptr};
    pid_t pid = -1;
    int status = -1;
    if (posix_spawnp(&pid, "gnuplot", nullptr, nullptr, const_cast<char **>(argv), environ) != 0 ||
        waitpid(pid, &status, 0) != pid || status != 0) {
        std::fprintf(stderr, "bus bench: no plot (gnuplot missing or failed; tools/deps.sh "
                             "installs gnuplot-nox)\n");
    }
}

} // namespace busbench
