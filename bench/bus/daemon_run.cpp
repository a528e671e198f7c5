// SPDX-License-Identifier: BSD-3-Clause
#include "daemon_run.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "records.h"

namespace busbench {
namespace {

using namespace std::chrono_literals;

constexpr const char *MARKER = "/bridge/vvlan/data/end";

} // namespace

void write_full_tables(pipeline &load) {
    for (int i = 0; i < 124; ++i) {
        const testcommon::mac6 mac{0x02, static_cast<uint8_t>(i), 0, 0, 0, 0};
        char key[80];
        std::snprintf(key, sizeof key, "/bridge/vvlan/oui_oper/02%02x00000000/ffffff000000", i);
        load.add(1, {"SET", key, testcommon::oui_value(mac, {0xff, 0xff, 0xff, 0, 0, 0})});
    }
    for (uint32_t ifx = 0; ifx < 53; ++ifx) {
        load.add(1, {"SET", "/bridge/vvlan/port_oper/" + std::to_string(ifx) + "/1",
                     testcommon::port_oper_value(ifx, 1, 1)});
    }
    for (int n = 256; n < 384; ++n) {
        load.add(1, {"SET", "/bridge/mac_vlan/table/" + std::to_string(n),
                     testcommon::mac_vlan_bytes({0x02, 0x05, 0, 0, 0, 1},
                                                {0xff, 0xff, 0xff, 0, 0, 0}, 100)});
    }
    load.add(1, {"SET", "/bridge/vvlan/vid/100", ""});
    load.add(1, {"SET", "/bridge/vvlan/age_timer/1", testcommon::be16_bytes(1440)});
    load.add(1, {"SET", MARKER, "1"});
    if (load.finish() != 0) {
        throw std::runtime_error("setting up the tables failed");
    }
}

daemon_run::daemon_run(const daemon_binary &binary, const std::string &socket_path,
                       keyspace_observer &observer, pipeline &load)
    : binary_(binary), socket_path_(socket_path), observer_(observer), load_(load) {
    for (const char *dir : {"", "/var", "/var/run", "/data", "/var/tmp"}) {
        mkdir((binary_.sysroot + dir).c_str(), 0755);
    }
    unlink((binary_.sysroot + "/var/tmp/dov_vvlan_dbg").c_str());
}

daemon_run::~daemon_run() {
    stop();
}

double daemon_run::start() {
    integration::daemon_options options;
    options.binary = binary_.path;
    options.emulator = binary_.emulator;
    options.env = {{"TUKREDIS_SOCKET", socket_path_}};
    options.stderr_path = binary_.sysroot + "/bench-daemon.err";
    process_ = std::make_unique<integration::daemon_process>(options);
    observer_.discard();
    const steady_clock::time_point started = steady_clock::now();
    process_->start();
    const steady_clock::time_point at = wait_marker();
    connected_ = at;
    return std::chrono::duration<double>(at - started).count();
}

// The id of the client subscribed to the daemon's eleven patterns.
std::string daemon_subscription(pipeline &load) {
    redisReply *reply = load.run(0, {"CLIENT", "LIST"});
    const std::string text(reply->str, reply->len);
    freeReplyObject(reply);
    size_t line = 0;
    while (line < text.size()) {
        const size_t end = text.find('\n', line);
        const std::string client = text.substr(line, end - line);
        if (client.find(" psub=11 ") != std::string::npos) {
            const size_t id = client.find("id=") + 3;
            return client.substr(id, client.find(' ', id) - id);
        }
        line = end == std::string::npos ? text.size() : end + 1;
    }
    throw std::runtime_error("the daemon's subscription is not among the clients");
}

double daemon_run::resync_after_cut() {
    // The bus library reconnects at once only after a session of a second
    // or more; a shorter one is taken for a server that drops it and paced.
    std::this_thread::sleep_until(connected_ + std::chrono::milliseconds(1100));
    const std::string id = daemon_subscription(load_);
    observer_.discard();
    const steady_clock::time_point cut = steady_clock::now();
    freeReplyObject(load_.run(0, {"CLIENT", "KILL", "ID", id}));
    connected_ = wait_marker();
    return std::chrono::duration<double>(connected_ - cut).count();
}

void daemon_run::queue_marker() {
    load_.add(1, {"SET", MARKER, std::to_string(++marker_)});
}

// Waits in slices, so that a daemon that died is noticed at once.
steady_clock::time_point daemon_run::wait_marker() {
    steady_clock::time_point at;
    const steady_clock::time_point until = steady_clock::now() + 600s;
    while (!observer_.wait(0, MARKER, "set", 100ms, at)) {
        if (!process_ || !process_->running() || steady_clock::now() > until) {
            throw std::runtime_error("the daemon stopped or fell behind:\n" +
                                     (process_ ? process_->stderr_text() : std::string()));
        }
    }
    return at;
}

steady_clock::time_point daemon_run::barrier() {
    observer_.discard();
    queue_marker();
    load_.finish();
    return wait_marker();
}

void daemon_run::pause() {
    kill(process_->pid(), SIGSTOP);
}

void daemon_run::resume() {
    kill(process_->pid(), SIGCONT);
}

void daemon_run::stop() {
    if (process_) {
        kill(process_->pid(), SIGCONT);
        process_->terminate(10s);
        process_.reset();
    }
}

long daemon_run::rss_kib() const {
    std::ifstream in("/proc/" + std::to_string(process_->pid()) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

} // namespace busbench
