// SPDX-License-Identifier: BSD-3-Clause
// The real daemon as a process, driven and timed from outside.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bus_bench.h"
#include "daemon_process.h"

namespace busbench {

struct daemon_binary {
    std::string label; // "PC" or "MIPS (qemu-mips)"
    std::string path;
    std::vector<std::string> emulator;
    std::string sysroot; // the prefix its fixed files were built with
};

class daemon_run {
  public:
    daemon_run(const daemon_binary &binary, const std::string &socket_path,
               keyspace_observer &observer, pipeline &load);
    ~daemon_run();

    // Starts the daemon; seconds until its re-synchronisation has copied the
    // load-complete marker.
    double start();
    // Cuts the daemon's subscription connection (CLIENT KILL ID); seconds
    // until the re-synchronisation that follows its reconnection has copied
    // the marker. This is the re-synchronisation without the process start.
    double resync_after_cut();
    // Writes a new marker value; the time when its copy appears. Everything
    // written before it has been handled by then.
    steady_clock::time_point barrier();
    // SIGSTOP / SIGCONT: the daemon keeps its connections and reads nothing.
    void pause();
    void resume();
    void stop();
    // VmRSS in KiB (of the emulator for a target daemon).
    long rss_kib() const;

    // The marker written last and the load's queue, for a barrier behind a
    // pipelined load: queues the marker, to be waited for with wait_marker.
    void queue_marker();
    steady_clock::time_point wait_marker();

  private:
    daemon_binary binary_;
    std::string socket_path_;
    keyspace_observer &observer_;
    pipeline &load_;
    std::unique_ptr<integration::daemon_process> process_;
    int marker_ = 1000;
    steady_clock::time_point connected_{};
};

// Voice VLAN 100, 124 OUIs, 53 automatic ports, 128 MAC-VLAN entries.
void write_full_tables(pipeline &load);

} // namespace busbench
