// SPDX-License-Identifier: BSD-3-Clause
// The server goes away under the daemon: restarted in the middle of a
// learning stream, stopped (SIGSTOP) for longer than the ping interval,
// down when the daemon starts. The daemon waits without spinning, comes
// back, re-synchronises, and ends in the state a fresh daemon reaches on
// the same inputs, except for the prescribed losses.
#include <fstream>
#include <iostream>

#include "fault_fixture.h"
#include "learning_stream.h"
#include "process_probe.h"
#include "server_admin.h"

namespace faults {
namespace {

// CPU sampled over this window while the server is unreachable.
constexpr auto CPU_WINDOW = 3s;
constexpr double CPU_LIMIT = 0.01;

class ServerFaultTest : public FaultTest {
  protected:
    double cpu_while_unreachable() {
        return cpu_share_over(daemon().pid(), CPU_WINDOW,
                              [&] { ASSERT_TRUE(daemon().running()) << daemon().stderr_text(); });
    }
    bool stderr_says(const std::string &text, std::chrono::milliseconds deadline) {
        return testsupport::eventually(
            [&] { return daemon().stderr_text().find(text) != std::string::npos; }, deadline);
    }
};

TEST_F(ServerFaultTest, RestartedDuringALearningStream) {
    start();
    ASSERT_NO_FATAL_FAILURE(configure_switch());
    const int before = resyncs();

    learning_stream stream(server().socket_path());
    ASSERT_EVENTUALLY(10s, stream.written() >= 300);
    shutdown_keeping_data(server(), redis());
    const long at_stop = stream.written();
    const double cpu = cpu_while_unreachable();
    EXPECT_LT(cpu, CPU_LIMIT) << "CPU share while the server was down";
    server().start();
    ASSERT_NO_FATAL_FAILURE(wait_resync_after(before, integration::patience(15s)));
    ASSERT_EVENTUALLY(10s, stream.written() >= at_stop + 300);
    const long retried = stream.retried();
    record_learnings(stream.stop());
    std::cout << "learnings written: " << stream.written() << ", " << retried
              << " writes retried while the server was down; daemon CPU while down: " << cpu * 100
              << "%\n";
    EXPECT_GT(retried, 0) << "the stream never saw the server down";

    ASSERT_NO_FATAL_FAILURE(expect_alive_and_settled());
    prescribed_losses losses;
    for (int32_t ifx : PHONE_PORTS) {
        losses.mode2_key_swept(ifx);
    }
    expect_only(losses);
}

TEST_F(ServerFaultTest, StoppedLongerThanThePingInterval) {
    start({{"TUKREDIS_PING_INTERVAL_MS", "300"}});
    ASSERT_NO_FATAL_FAILURE(configure_switch());
    const int before = resyncs();

    server().pause();
    ASSERT_TRUE(stderr_says("no answer to a ping", integration::patience(5s)))
        << daemon().stderr_text();
    const double cpu = cpu_while_unreachable();
    EXPECT_LT(cpu, CPU_LIMIT) << "CPU share while the server was stopped";
    server().resume();
    std::cout << "daemon CPU while the server was stopped: " << cpu * 100 << "%\n";
    ASSERT_NO_FATAL_FAILURE(wait_resync_after(before, integration::patience(15s)));

    ASSERT_NO_FATAL_FAILURE(expect_alive_and_settled());
    prescribed_losses losses;
    for (int32_t ifx : PHONE_PORTS) {
        losses.mode2_key_swept(ifx);
    }
    expect_only(losses);
}

// Nothing is lost: the daemon was never subscribed before, and the
// configuration arrives after it is.
TEST_F(ServerFaultTest, DownAtStartUpLater) {
    server().stop();
    std::ofstream(marker_file()) << "";
    daemon_ = make_daemon({}, "daemon.err");
    daemon_->start();
    ASSERT_TRUE(stderr_says("cannot connect", integration::patience(5s))) << daemon().stderr_text();
    const int fds_down = open_fds(daemon().pid());
    const double cpu = cpu_while_unreachable();
    EXPECT_LT(cpu, CPU_LIMIT) << "CPU share while the server was down";
    EXPECT_LE(open_fds(daemon().pid()), fds_down) << "file descriptors grew while retrying";
    std::cout << "daemon CPU while the server was down: " << cpu * 100 << "%\n";

    server().start();
    ASSERT_NO_FATAL_FAILURE(wait_resync_after(0, integration::patience(15s)));
    baseline_fds_ = open_fds(daemon().pid());
    ASSERT_NO_FATAL_FAILURE(configure_switch());

    ASSERT_NO_FATAL_FAILURE(expect_alive_and_settled());
    expect_only(prescribed_losses{});
}

} // namespace
} // namespace faults
