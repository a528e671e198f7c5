// SPDX-License-Identifier: BSD-3-Clause
// vvlanctl as a filter in a pipeline: a reader that goes away ends it as
// SIGPIPE ends any filter, and output it could not write is an error.
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include "ctl_fixture.h"

namespace ctltest {
namespace {

class PipelineTest : public CtlTest {
  protected:
    // args, on this test's server.
    std::vector<std::string> on_server(const std::vector<std::string> &args) {
        std::vector<std::string> full{"-s", server().socket_path()};
        full.insert(full.end(), args.begin(), args.end());
        return full;
    }
};

// Reads fd up to and including the first newline, until deadline.
std::string first_line(int fd, std::chrono::milliseconds deadline) {
    std::string line;
    const auto until = std::chrono::steady_clock::now() + deadline;
    while (line.find('\n') == std::string::npos && std::chrono::steady_clock::now() < until) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) == 1) {
            char c = 0;
            if (read(fd, &c, 1) != 1) {
                break;
            }
            line += c;
        }
    }
    return line;
}

// vvlanctl watch | head -1: after its line the reader is gone, and the next
// event ends the tool at once with SIGPIPE's status.
TEST_F(PipelineTest, WatchEndsWithItsReader) {
    start_daemon(false);
    tool_process w(server().dir(), {"-s", server().socket_path(), "watch"});
    const int fd = w.start_piped();
    ASSERT_TRUE(testsupport::eventually(
        [&] { return w.err().find("vvlanctl: watching ") != std::string::npos; },
        integration::patience(20s)))
        << w.err();
    cfg_set("/bridge/vvlan/vid/100", "");
    const std::string line = first_line(fd, integration::patience(10s));
    close(fd);
    ASSERT_NE(line.find("set vid 100"), std::string::npos) << line;
    cfg_set("/bridge/vvlan/vid/200", "");
    EXPECT_EQ(w.wait_exit(integration::patience(1s)), 128 + SIGPIPE) << w.err();
    // Quietly: a closed pipe is no error to report.
    EXPECT_EQ(w.err().find("error"), std::string::npos) << w.err();
}

// A command of each kind of output: text, JSON, help, version.
const std::vector<std::vector<std::string>> EVERY_KIND_OF_OUTPUT = {
    {"show", "--json"}, {"show"}, {"check", "--json"}, {"--help"}, {"--version"}};

// Every command, not only watch: a reader gone before the output is written
// ends the tool by SIGPIPE, with nothing on standard error.
TEST_F(PipelineTest, EveryCommandEndsQuietlyWithoutAReader) {
    start_daemon(false);
    configure();
    for (const std::vector<std::string> &args : EVERY_KIND_OF_OUTPUT) {
        const std::vector<std::string> full = on_server(args);
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        close(fds[0]);
        tool_process p(server().dir(), full);
        p.start_writing_to(fds[1]);
        close(fds[1]);
        EXPECT_EQ(p.wait_exit(integration::patience(20s)), 128 + SIGPIPE)
            << join(args) << ": " << p.err();
        EXPECT_EQ(p.err(), "") << join(args);
    }
}

TEST_F(PipelineTest, OutputThatCannotBeWrittenIsAnError) {
    start_daemon(false);
    configure();
    for (const std::vector<std::string> &args : EVERY_KIND_OF_OUTPUT) {
        const std::vector<std::string> full = on_server(args);
        tool_process p(server().dir(), full);
        p.output_to("/dev/full");
        p.start();
        EXPECT_EQ(p.wait_exit(integration::patience(20s)), 3) << join(args) << ": " << p.err();
        EXPECT_NE(p.err().find("error writing the output"), std::string::npos)
            << join(args) << ": " << p.err();
    }
}

} // namespace
} // namespace ctltest
