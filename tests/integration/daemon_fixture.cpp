// SPDX-License-Identifier: BSD-3-Clause
#include "daemon_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace integration {

namespace {

std::vector<std::string> split_path(const std::string &text, char sep) {
    std::vector<std::string> out;
    std::stringstream in(text);
    std::string item;
    while (std::getline(in, item, sep)) {
        if (!item.empty()) {
            out.push_back(item);
        }
    }
    return out;
}

std::string env_or(const char *name, const std::string &fallback) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : fallback;
}

void make_dirs(const std::string &path) {
    std::string partial;
    for (const std::string &part : split_path(path, '/')) {
        partial += "/" + part;
        mkdir(partial.c_str(), 0755);
    }
}

} // namespace

// The value of a cache entry of a build tree ("NAME:TYPE=value").
std::string cache_value(const std::string &tree, const std::string &name) {
    std::ifstream in(tree + "/CMakeCache.txt");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(name + ":", 0) == 0) {
            const std::size_t eq = line.find('=');
            return eq == std::string::npos ? std::string() : line.substr(eq + 1);
        }
    }
    return {};
}

const daemon_config &daemon_config::get() {
    static const daemon_config config = [] {
        daemon_config c;
        const std::string target = env_or("DOV_VVLAN_TARGET_BUILD_DIR", "");
        if (target.empty()) {
            c.daemon = DOV_VVLAN_TEST_DAEMON;
            c.sysroot = DOV_VVLAN_SYSROOT;
        } else {
            c.daemon = target + "/dov_vvlan";
            c.emulator = {DOV_VVLAN_QEMU, "-L", DOV_VVLAN_TARGET_LIBC};
            c.sysroot = cache_value(target, "DOV_VVLAN_SYSROOT");
        }
        return c;
    }();
    return config;
}

std::chrono::milliseconds patience(std::chrono::milliseconds base) {
    return daemon_config::get().emulator.empty() ? base : base * 4;
}

std::string bytes(std::initializer_list<int> values) {
    std::string out;
    for (int v : values) {
        out.push_back(static_cast<char>(static_cast<uint8_t>(v)));
    }
    return out;
}

std::string DaemonTest::pid_file() const {
    return daemon_config::get().sysroot + "/var/run/dov_vvlan.pid";
}
std::string DaemonTest::ham_file() const {
    return daemon_config::get().sysroot + "/data/dov_vvlan_ham.txt";
}
std::string DaemonTest::marker_file() const {
    return daemon_config::get().sysroot + "/var/tmp/dov_vvlan_dbg";
}

void DaemonTest::SetUp() {
    const std::string &root = daemon_config::get().sysroot;
    ASSERT_FALSE(root.empty()) << "the daemon under test must be built with a private prefix";
    for (const char *dir : {"/var/run", "/data", "/var/tmp"}) {
        make_dirs(root + dir);
    }
    unlink(pid_file().c_str());
    unlink(ham_file().c_str());
    unlink(marker_file().c_str());
    server_ = std::make_unique<testsupport::redis_server>();
    server_->set_extra_args(server_args());
    server_->start();
    client_ = std::make_unique<testsupport::redis_client>(server_->socket_path());
}

namespace {

// A sanitizer build of the daemon reports on its standard error; ThreadSanitizer
// goes on running, so the report is the only sign.
void expect_no_sanitizer_report(const daemon_process &process) {
    const std::string err = process.stderr_text();
    for (const char *mark :
         {"ThreadSanitizer", "AddressSanitizer", "LeakSanitizer", "runtime error:"}) {
        EXPECT_EQ(err.find(mark), std::string::npos) << err;
    }
}

} // namespace

void DaemonTest::TearDown() {
    if (daemon_) {
        expect_no_sanitizer_report(*daemon_);
    }
    if (daemon_ && HasFailure()) {
        std::cerr << "---- daemon output ----\n"
                  << daemon_->output() << "---- daemon stderr ----\n"
                  << daemon_->stderr_text() << "----\n";
    }
    daemon_.reset();
    client_.reset();
    server_.reset();
    unlink(pid_file().c_str());
    unlink(ham_file().c_str());
    unlink(marker_file().c_str());
}

std::unique_ptr<daemon_process> DaemonTest::make_daemon(std::map<std::string, std::string> env,
                                                        const std::string &stderr_name,
                                                        const std::vector<std::string> *prefix) {
    daemon_options options;
    options.binary = daemon_config::get().daemon;
    options.emulator = prefix != nullptr ? *prefix : daemon_config::get().emulator;
    options.env = std::move(env);
    options.env.emplace("TUKREDIS_SOCKET", server_->socket_path());
    options.stderr_path = server_->dir() + "/" + stderr_name;
    return std::make_unique<daemon_process>(options);
}

void DaemonTest::start_daemon(bool traces, std::map<std::string, std::string> env) {
    if (traces) {
        std::ofstream(marker_file()) << "";
    }
    daemon_ = make_daemon(std::move(env), "daemon.err");
    daemon_->start();
    if (traces) {
        ASSERT_TRUE(daemon_->wait_output("check_db_validate end", patience(10s)))
            << daemon_->output() << daemon_->stderr_text();
    } else {
        barrier();
    }
}

void DaemonTest::start_daemon_under(std::vector<std::string> prefix,
                                    std::chrono::milliseconds startup) {
    daemon_ = make_daemon({}, "daemon.err", &prefix);
    daemon_->start();
    // The first marker copy shows it subscribed and re-synchronised.
    cfg_set("/bridge/vvlan/data/end", "1");
    ASSERT_TRUE(
        testsupport::eventually([&] { return db0("/bridge/vvlan/data/end") == "1"; }, startup))
        << daemon_->stderr_text();
}

int DaemonTest::run_to_exit(bool traces, std::map<std::string, std::string> env,
                            std::unique_ptr<daemon_process> *out) {
    if (traces) {
        std::ofstream(marker_file()) << "";
    }
    auto process = make_daemon(std::move(env), "exit.err");
    process->start();
    const int status = process->wait_exit(patience(10s));
    expect_no_sanitizer_report(*process);
    if (out != nullptr) {
        *out = std::move(process);
    }
    return status;
}

void DaemonTest::barrier() {
    const std::string value = std::to_string(++barrier_value_);
    cfg_set("/bridge/vvlan/data/end", value);
    ASSERT_TRUE(testsupport::eventually([&] { return db0("/bridge/vvlan/data/end") == value; },
                                        patience(10s)))
        << "the daemon did not copy the load-complete marker " << value;
    if (daemon_) {
        ASSERT_TRUE(daemon_->drain(patience(5s))) << "the daemon's output was not collected";
    }
}

std::vector<testcommon::trace_line> DaemonTest::traces() const {
    return traces_since(0);
}

std::vector<testcommon::trace_line> DaemonTest::traces_since(std::size_t mark) const {
    std::vector<testcommon::trace_line> out;
    const std::string text = daemon_->output_since(mark);
    std::size_t start = 0;
    for (std::size_t end = text.find("\r\n"); end != std::string::npos;
         end = text.find("\r\n", start)) {
        out.push_back(testcommon::parse_trace_line(text.substr(start, end - start + 2)));
        start = end + 2;
    }
    return out;
}

bool DaemonTest::has_line(const std::string &func, int level, const std::string &text) const {
    for (const testcommon::trace_line &t : traces()) {
        if (t.func == func && t.level == level && t.text == text) {
            return true;
        }
    }
    return false;
}

bool DaemonTest::wait_line(const std::string &func, int level, const std::string &text,
                           std::chrono::milliseconds deadline) {
    return testsupport::eventually([&] { return has_line(func, level, text); }, deadline);
}

} // namespace integration
