// SPDX-License-Identifier: BSD-3-Clause
// The bus benchmark: the daemon against ceilings measured in the same run on
// the same redis-server. Shared declarations of its parts.
#pragma once

#include <hiredis/hiredis.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace busbench {

using steady_clock = std::chrono::steady_clock;

double seconds_since(steady_clock::time_point start);

// A plain hiredis connection to the server's socket that pipelines: commands
// are appended, sent in large writes, and their replies read in bulk, so that
// the load it puts on the server is limited by the server.
class pipeline {
  public:
    explicit pipeline(const std::string &socket_path);
    ~pipeline();
    pipeline(const pipeline &) = delete;
    pipeline &operator=(const pipeline &) = delete;

    // Queues one command (SELECT is added when db changes).
    void add(int db, const std::vector<std::string> &argv);
    // Sends everything queued and reads every reply; the number of error
    // replies.
    size_t finish();
    // Sends everything queued without reading a reply; finish reads them.
    void send();
    // One command, waiting for its reply.
    redisReply *run(int db, const std::vector<std::string> &argv);
    redisContext *context() { return context_; }

  private:
    void flush_some(bool all);
    redisContext *context_ = nullptr;
    int db_ = 0;
    size_t owed_ = 0;
    size_t errors_ = 0;
};

// The MAC-learning churn the drains are timed on: count notifications,
// learned and aged addresses on port 5 (phyid 6) of VLAN 100, in db 0.
std::vector<std::vector<std::string>> learning_churn(size_t count);
// The key of a learned voice address on phyid.
std::string learned_key(int phyid, uint32_t serial);

// Percentiles of samples, in the samples' unit.
struct percentiles {
    double p50 = 0;
    double p99 = 0;
    double max = 0;
    std::vector<double> sorted;
};
percentiles distribution(std::vector<double> samples);

// The consumers that set the ceilings, each in a process of its own (the
// benchmark's executable started again with --consumer).
// relay is not a drain: it answers each learning as the daemon answers one
// on an automatic port (the port's mode 2 key in database 0, then the join
// request in database 1, one pipeline), with nothing else, until killed.
enum class consumer_kind { HIREDIS, RAW, BUS, RELAY };
const char *consumer_name(consumer_kind kind);

// Runs a consumer process. In backlog mode it subscribes, reports ready and
// reads nothing until go(); in live mode it reads from go() on. finish()
// returns the seconds from go() to the count-th notification.
class consumer_process {
  public:
    consumer_process(consumer_kind kind, const std::string &socket_path, size_t count);
    ~consumer_process();
    consumer_process(const consumer_process &) = delete;
    consumer_process &operator=(const consumer_process &) = delete;
    void go();
    double finish();

  private:
    int pid_ = -1;
    int to_child_ = -1;
    int from_child_ = -1;
    steady_clock::time_point went_{};
};

// The --consumer side: returns the process's exit status.
int consumer_main(consumer_kind kind, const std::string &socket_path, size_t count);

// Keyspace events the benchmark waits for: the daemon's join requests in
// database 1, its port operation echoes and the load-complete marker's copy
// in database 0.
class keyspace_observer {
  public:
    explicit keyspace_observer(const std::string &socket_path);
    ~keyspace_observer();
    keyspace_observer(const keyspace_observer &) = delete;
    keyspace_observer &operator=(const keyspace_observer &) = delete;
    // Waits for the event (e.g. "set") on key in db and sets at to when it
    // arrived; false at the deadline. Other events are passed over.
    bool wait(int db, const std::string &key, const std::string &event,
              std::chrono::milliseconds deadline, steady_clock::time_point &at);
    // Passes over every event that has arrived so far.
    void discard();

  private:
    redisContext *context_ = nullptr;
};

// One PING round trip on context (a connection kept for PINGs alone, so
// that nothing else is owed on it), in microseconds.
double ping_round_trip_us(redisContext *context);

// The bare re-synchronisation client: the daemon's marks, re-reads (a GET
// per key, a SET of its copy in database 0) and sweeps, one round trip per
// command or pipelined per SCAN batch. Seconds.
double bare_resync(const std::string &socket_path, bool pipelined, int scan_count);

// Results, in the order they are reported.
struct report_row {
    std::string measure;
    std::string daemon;  // the daemon's figure, as printed
    std::string ceiling; // the reference figure(s)
    std::string ratio;   // the ratio(s)
    std::string goal;    // the goal and whether it is met
};

struct bench_report {
    std::string machine;
    std::vector<report_row> rows;
    std::map<std::string, double> values; // everything measured, for the JSON
    std::vector<double> join_us;          // join latencies, for the plot
    std::vector<double> ping_us;          // PING round trips, for the plot
};

// The table: every measure with its ceiling, its ratio and its goal.
void fill_report(bench_report &report, const std::vector<size_t> &mac_tables, bool mips);

// Writes <stem>.json, <stem>.md and, when gnuplot is there, <stem>.png.
void write_report(const bench_report &report, const std::string &stem);

} // namespace busbench
