// SPDX-License-Identifier: BSD-3-Clause
// Start-up: single-instance guard, health agent, debug level, device
// manager, lock, default aging time; and every failure row.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "daemon_test.h"
#include "main/vvlan_init.h"
#include "settings/vvlan_table.h"
#include "trace/debug_level.h"
#include "trace/trace.h"

using namespace fake;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string PID_FILE = DOV_VVLAN_SYSROOT "/var/run/dov_vvlan.pid";
const std::string HAM_FILE = DOV_VVLAN_SYSROOT "/data/dov_vvlan_ham.txt";
const std::string MARKER = DOV_VVLAN_SYSROOT "/var/tmp/dov_vvlan_dbg";

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

int open_fd_count() {
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return -1;
    }
    while (readdir(dir) != nullptr) {
        ++n;
    }
    closedir(dir);
    return n;
}

class VvlanInitTest : public DaemonTest {
  protected:
    void SetUp() override {
        DaemonTest::SetUp();
        unlink(PID_FILE.c_str());
        unlink(HAM_FILE.c_str());
        unlink(MARKER.c_str());
    }
    void TearDown() override {
        if (holder_fd_ >= 0) {
            close(holder_fd_);
        }
        rmdir(PID_FILE.c_str());
        unlink(PID_FILE.c_str());
        unlink(HAM_FILE.c_str());
        unlink(MARKER.c_str());
        DaemonTest::TearDown();
    }

    // Another instance's lock: an open-file-description lock conflicts with
    // the daemon's record lock even inside this one process.
    void hold_pid_lock() {
        holder_fd_ = open(PID_FILE.c_str(), O_RDWR | O_CREAT, 0644);
        ASSERT_GE(holder_fd_, 0);
        ASSERT_EQ(write(holder_fd_, "12345", 5), 5);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        ASSERT_EQ(fcntl(holder_fd_, F_OFD_SETLK, &lock), 0) << std::strerror(errno);
    }

    int holder_fd_ = -1;
};

TEST_F(VvlanInitTest, SucceedsInOrder) {
    EXPECT_EQ(vvlan_init(), 0);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("vvlan_init", "vvlan_init start"),
                                           info_line("vvlan_init", "vvlan_init end")));
    const std::vector<platform_call> calls = platform().calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].op, "ham_agent_init");
    EXPECT_EQ(calls[1].op, "reg_exit");
    EXPECT_EQ(calls[1].args, (std::vector<int64_t>{0, 2}));
    EXPECT_EQ(calls[2].op, "libsdm_init");
    EXPECT_EQ(calls[2].name, "dov_vvlan");
    EXPECT_EQ(calls[2].args, std::vector<int64_t>{0});
    EXPECT_EQ(posix_faults::mutex_init_calls(), 1);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 1440);
    EXPECT_EQ(g_vvlan_table.vid, 0);
    EXPECT_EQ(g_vvlan_table.status, 0);
    EXPECT_EQ(g_vvlan_table.is_running, 0);
    EXPECT_EQ(g_vvlan_table.oui_num, 0);
    EXPECT_EQ(g_vvlan_table.oui_idx, 0);
    EXPECT_THAT(bus().calls(), IsEmpty());
}

TEST_F(VvlanInitTest, PidFileHoldsTheDigitsOnly) {
    std::ofstream(PID_FILE) << "a much longer earlier content\n";
    ASSERT_EQ(vvlan_init(), 0);
    EXPECT_EQ(read_file(PID_FILE), std::to_string(getpid()));
    struct stat st {};
    ASSERT_EQ(stat(PID_FILE.c_str(), &st), 0);
    EXPECT_EQ(
        st.st_mode & 0777, 0644u & ~[] {
            const mode_t m = umask(0);
            umask(m);
            return m;
        }());
}

TEST_F(VvlanInitTest, PidFileStaysOpenAndLocked) {
    ASSERT_EQ(vvlan_init(), 0);
    ASSERT_GE(g_pid_fd, 0);
    const int probe = open(PID_FILE.c_str(), O_RDWR);
    ASSERT_GE(probe, 0);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    EXPECT_EQ(fcntl(probe, F_OFD_SETLK, &lock), -1);
    close(probe);
}

TEST_F(VvlanInitTest, HamOptOutFileSkipsTheRegistration) {
    std::ofstream(HAM_FILE) << "x";
    ASSERT_EQ(vvlan_init(), 0);
    EXPECT_THAT(platform().calls("reg_exit"), IsEmpty());
    EXPECT_EQ(platform().calls("ham_agent_init").size(), 1u);
}

TEST_F(VvlanInitTest, WithoutOptOutFileRegistersOnceWith0And2) {
    ASSERT_EQ(vvlan_init(), 0);
    const std::vector<platform_call> reg = platform().calls("reg_exit");
    ASSERT_EQ(reg.size(), 1u);
    EXPECT_EQ(reg[0].args, (std::vector<int64_t>{0, 2}));
}

// The level is still 0 until the marker is read: with the marker the output
// starts at "vvlan_init end".
TEST_F(VvlanInitTest, MarkerFileTracesFromVvlanInitEndOn) {
    std::ofstream(MARKER) << "";
    dov_vvlan_set_dbg(0);
    ASSERT_EQ(vvlan_init(), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 32u);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("vvlan_init", "vvlan_init end")));
}

TEST_F(VvlanInitTest, MarkerFileDoesNotShowEarlyFailures) {
    std::ofstream(MARKER) << "";
    dov_vvlan_set_dbg(0);
    platform().set_result("reg_exit", 5);
    EXPECT_EQ(vvlan_init(), 5);
    EXPECT_THAT(raw_trace(), IsEmpty());
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 0u);
}

TEST_F(VvlanInitTest, NoMarkerNoTrace) {
    dov_vvlan_set_dbg(0);
    ASSERT_EQ(vvlan_init(), 0);
    EXPECT_EQ(dov_vvlan_dbg_level.load(), 0u);
    EXPECT_THAT(raw_trace(), IsEmpty());
}

// A second instance empties the running one's pid file before it finds the
// lock taken.
TEST_F(VvlanInitTest, SecondInstanceTruncatesThePidFileAndFails) {
    hold_pid_lock();
    const int fds_before = open_fd_count();
    EXPECT_EQ(vvlan_init(), -11);
    EXPECT_EQ(read_file(PID_FILE), "");
    EXPECT_EQ(open_fd_count(), fds_before) << "descriptor left open";
    EXPECT_EQ(g_pid_fd, -1);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("vvlan_init", "vvlan_init start"),
                            err_line("vvlan_init", "<warning> vvlan process has already run")));
    EXPECT_THAT(platform().calls(), IsEmpty());
}

TEST_F(VvlanInitTest, LockRefusedWithEaccesClosesTheDescriptor) {
    posix_faults::fail_fcntl_setlk(EACCES);
    const int fds_before = open_fd_count();
    EXPECT_EQ(vvlan_init(), -11);
    EXPECT_EQ(open_fd_count(), fds_before);
}

// Any other errno leaves the descriptor open, as it always has.
TEST_F(VvlanInitTest, LockFailingWithAnotherErrnoLeavesTheDescriptorOpen) {
    posix_faults::fail_fcntl_setlk(ENOLCK);
    const int fds_before = open_fd_count();
    EXPECT_EQ(vvlan_init(), -11);
    EXPECT_EQ(open_fd_count(), fds_before + 1);
    EXPECT_EQ(trace_lines().back(),
              err_line("vvlan_init", "<warning> vvlan process has already run"));
}

TEST_F(VvlanInitTest, PidFileThatCannotBeOpenedCountsAsAlreadyRunning) {
    ASSERT_EQ(mkdir(PID_FILE.c_str(), 0755), 0);
    EXPECT_EQ(vvlan_init(), -11);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("vvlan_init", "vvlan_init start"),
                            err_line("vvlan_init", "<warning> vvlan process has already run")));
}

TEST_F(VvlanInitTest, HamAgentInitFailure) {
    platform().set_result("ham_agent_init", -5);
    EXPECT_EQ(vvlan_init(), -5);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("vvlan_init", "vvlan_init start"),
                                           err_line("ham_init", "ham_agent_init failed rv = -5"),
                                           err_line("vvlan_init", "ham_init failed ret = -5")));
    EXPECT_THAT(platform().calls("reg_exit"), IsEmpty());
    EXPECT_THAT(platform().calls("libsdm_init"), IsEmpty());
    // Nothing is undone: the pid file stays written and locked.
    EXPECT_EQ(read_file(PID_FILE), std::to_string(getpid()));
    EXPECT_GE(g_pid_fd, 0);
}

TEST_F(VvlanInitTest, RegProcessExitActionFailure) {
    platform().set_result("reg_exit", 7);
    EXPECT_EQ(vvlan_init(), 7);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("vvlan_init", "vvlan_init start"),
                                           err_line("vvlan_init", "ham_init failed ret = 7")));
    EXPECT_THAT(platform().calls("libsdm_init"), IsEmpty());
}

TEST_F(VvlanInitTest, LibsdmInitFailure) {
    platform().set_result("libsdm_init", -3);
    EXPECT_EQ(vvlan_init(), -3);
    EXPECT_THAT(trace_lines(), ElementsAre(info_line("vvlan_init", "vvlan_init start"),
                                           err_line("vvlan_init", "libsdm_init failed ret = -3")));
    EXPECT_EQ(posix_faults::mutex_init_calls(), 0);
    EXPECT_EQ(g_vvlan_table.aging_minutes, 0);
}

TEST_F(VvlanInitTest, MutexInitFailure) {
    posix_faults::fail_mutex_init(12);
    EXPECT_EQ(vvlan_init(), 12);
    EXPECT_THAT(trace_lines(),
                ElementsAre(info_line("vvlan_init", "vvlan_init start"),
                            err_line("vvlan_init", "pthread_mutex_init failed ret = 12")));
    EXPECT_EQ(g_vvlan_table.aging_minutes, 0);
}

} // namespace
