// SPDX-License-Identifier: BSD-3-Clause
// Start-up of the real daemon: single instance, pid file, exit codes, the
// health agent and the device manager.
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "daemon_fixture.h"

namespace integration {
namespace {

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// The health agent's lines of a standard error that the bus library shares.
std::string ham_lines(const std::string &text) {
    std::string out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("ham: ", 0) == 0) {
            out += line + "\n";
        }
    }
    return out;
}

int count(const std::string &text, const std::string &needle) {
    int n = 0;
    for (std::size_t at = text.find(needle); at != std::string::npos;
         at = text.find(needle, at + 1)) {
        ++n;
    }
    return n;
}

class StartupTest : public DaemonTest {};

std::string resolved(const std::string &path) {
    char buf[PATH_MAX];
    return realpath(path.c_str(), buf) != nullptr ? buf : path;
}

// The process under test is the configured daemon: the PC binary itself, or
// the target binary run by the emulator.
TEST_F(StartupTest, RunsTheConfiguredDaemon) {
    start_daemon();
    const std::string proc = "/proc/" + std::to_string(daemon().pid());
    const std::string exe = resolved(proc + "/exe");
    const daemon_config &config = daemon_config::get();
    if (config.emulator.empty()) {
        EXPECT_EQ(exe, resolved(config.daemon));
    } else {
        EXPECT_EQ(exe, resolved(config.emulator[0]));
        std::string cmdline = read_file(proc + "/cmdline");
        EXPECT_NE(cmdline.find(config.daemon), std::string::npos) << cmdline;
        // A MIPS ELF: 32-bit ("\x01"), big-endian ("\x02"), machine 8.
        const std::string elf = read_file(config.daemon).substr(0, 20);
        ASSERT_EQ(elf.size(), 20u);
        EXPECT_EQ(elf.substr(0, 6), std::string("\x7f"
                                                "ELF\x01\x02",
                                                6));
        EXPECT_EQ(elf[18], '\0');
        EXPECT_EQ(elf[19], '\x08');
    }
}

TEST_F(StartupTest, PidFileHoldsThePidsDigitsOnly) {
    start_daemon();
    EXPECT_EQ(read_file(pid_file()), std::to_string(daemon().pid()));
}

// The second instance truncates the pid file on open, then finds the lock
// taken and exits with -11. Its level is still 0 then: it prints nothing.
TEST_F(StartupTest, SecondInstanceExits245AndLeavesThePidFileEmpty) {
    start_daemon();
    std::unique_ptr<daemon_process> second;
    EXPECT_EQ(run_to_exit(true, {}, &second), 245);
    EXPECT_EQ(second->output(), "");
    EXPECT_EQ(ham_lines(second->stderr_text()), "");
    EXPECT_EQ(read_file(pid_file()), "");
    EXPECT_TRUE(daemon().running());
    barrier(); // the first one still serves
}

TEST_F(StartupTest, PidFileThatCannotBeOpenedExits245) {
    ASSERT_EQ(mkdir(pid_file().c_str(), 0755), 0);
    EXPECT_EQ(run_to_exit(true, {}), 245);
    rmdir(pid_file().c_str());
}

// Failures before the marker file is read are not printed.
TEST_F(StartupTest, HealthAgentFailureExitsWithItsResult) {
    std::unique_ptr<daemon_process> d;
    EXPECT_EQ(run_to_exit(true, {{"HAM_AGENT_INIT_RESULT", "-5"}}, &d), 251);
    EXPECT_EQ(d->output(), "");
    EXPECT_EQ(ham_lines(d->stderr_text()), "ham: ham_agent_init()\n");
}

TEST_F(StartupTest, ExitActionRegistrationFailureExitsWithItsResult) {
    std::unique_ptr<daemon_process> d;
    EXPECT_EQ(run_to_exit(true, {{"HAM_AGENT_REG_RESULT", "3"}}, &d), 3);
    EXPECT_EQ(d->output(), "");
    EXPECT_EQ(ham_lines(d->stderr_text()),
              "ham: ham_agent_init()\nham: reg_process_exit_action(0, 2)\n");
}

// After the marker file is read the failure is traced, under vvlan_init and
// then under main.
TEST_F(StartupTest, DeviceManagerFailureIsTracedAndExitsWithItsResult) {
    std::unique_ptr<daemon_process> d;
    EXPECT_EQ(run_to_exit(true, {{"LIBSDM_INIT_RESULT", "-3"}}, &d), 253);
    const std::vector<std::string> lines = d->lines();
    ASSERT_EQ(lines.size(), 2u) << d->output();
    const testcommon::trace_line first = testcommon::parse_trace_line(lines[0] + "\r\n");
    const testcommon::trace_line second = testcommon::parse_trace_line(lines[1] + "\r\n");
    EXPECT_EQ(first.func, "vvlan_init");
    EXPECT_EQ(first.level, 2);
    EXPECT_EQ(first.text, "libsdm_init failed ret = -3");
    EXPECT_EQ(second.func, "main");
    EXPECT_EQ(second.level, 2);
    EXPECT_EQ(second.text, "vvlan_init failed ret = -3");
    EXPECT_TRUE(first.well_formed && second.well_formed);
}

TEST_F(StartupTest, OptOutFileSkipsTheExitActionRegistration) {
    std::ofstream(ham_file()) << "any content";
    start_daemon();
    EXPECT_EQ(ham_lines(daemon().stderr_text()), "ham: ham_agent_init()\n");
}

TEST_F(StartupTest, WithoutOptOutFileTheExitActionIsRegisteredOnce) {
    start_daemon();
    EXPECT_EQ(count(daemon().stderr_text(), "ham: reg_process_exit_action(0, 2)\n"), 1);
}

} // namespace
} // namespace integration
