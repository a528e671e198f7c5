// SPDX-License-Identifier: BSD-3-Clause
// The fixture of the integration tests: a private redis-server, the real
// daemon binary (host or target build), and helpers that write keys as the
// management plane (database 1) and the forwarding layer (database 0) would.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "daemon_process.h"
#include "testsupport/eventually.h"
#include "testsupport/redis_client.h"
#include "testsupport/redis_server.h"
#include "trace_line.h"

namespace integration {

using namespace std::chrono_literals;

// Which daemon to run: this build's own, or, when DOV_VVLAN_TARGET_BUILD_DIR
// names a target build tree, that tree's daemon under qemu-mips, with the
// file prefix that tree was configured with.
struct daemon_config {
    std::string daemon;
    std::vector<std::string> emulator;
    std::string sysroot;
    static const daemon_config &get();
};

// The time everything is allowed to take: generous under an emulator.
std::chrono::milliseconds patience(std::chrono::milliseconds base);

class DaemonTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // What the test's redis-server is started with beyond its defaults.
    virtual std::vector<std::string> server_args() { return {}; }

    // The three fixed files under the test prefix.
    std::string pid_file() const;
    std::string ham_file() const;
    std::string marker_file() const;

    // Starts the daemon and waits until it has subscribed and re-read the
    // configuration: with traces on, until "check_db_validate end"; without,
    // until a load-complete marker has come back.
    void start_daemon(bool traces = true, std::map<std::string, std::string> env = {});
    // The same with the daemon run by another program (valgrind, say), which
    // may take longer to get going.
    void start_daemon_under(std::vector<std::string> prefix, std::chrono::milliseconds startup);
    // Starts a daemon that is expected to exit; gives its status.
    int run_to_exit(bool traces, std::map<std::string, std::string> env,
                    std::unique_ptr<daemon_process> *out = nullptr);
    daemon_process &daemon() { return *daemon_; }
    std::unique_ptr<daemon_process> make_daemon(std::map<std::string, std::string> env,
                                                const std::string &stderr_name,
                                                const std::vector<std::string> *prefix = nullptr);

    // Notifications are handled in order: once a fresh load-complete marker
    // has been copied to database 0, everything written before it has been
    // handled, and every line the main thread printed for it has been
    // collected. (Lines of the aging thread keep their own pace: wait for
    // them with saw_line.)
    void barrier();

    testsupport::redis_client &redis() { return *client_; }
    testsupport::redis_server &server() { return *server_; }
    void cfg_set(const std::string &key, const std::string &value) { redis().set(1, key, value); }
    void cfg_del(const std::string &key) { redis().del(1, key); }
    void fwd_set(const std::string &key, const std::string &value) { redis().set(0, key, value); }
    void fwd_del(const std::string &key) { redis().del(0, key); }
    std::optional<std::string> db0(const std::string &key) { return redis().get(0, key); }
    std::optional<std::string> db1(const std::string &key) { return redis().get(1, key); }

    // The daemon's trace lines, parsed; all carry its pid.
    std::vector<testcommon::trace_line> traces() const;
    std::vector<testcommon::trace_line> traces_since(std::size_t mark) const;
    bool has_line(const std::string &func, int level, const std::string &text) const;
    bool wait_line(const std::string &func, int level, const std::string &text,
                   std::chrono::milliseconds deadline);
    // A line that has been, or is about to be, printed.
    bool saw_line(const std::string &func, int level, const std::string &text) {
        return wait_line(func, level, text, patience(5s));
    }

    std::unique_ptr<testsupport::redis_server> server_;
    std::unique_ptr<testsupport::redis_client> client_;
    std::unique_ptr<daemon_process> daemon_;
    int barrier_value_ = 1000;
};

std::string bytes(std::initializer_list<int> values);

} // namespace integration
