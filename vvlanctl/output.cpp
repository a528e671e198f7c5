// SPDX-License-Identifier: BSD-3-Clause
#include "output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "commands.h"

namespace {

// The write end of a pipe or socket whose reader has closed polls as an
// error; a file or terminal never does.
bool reader_gone(int error) {
    if (error == EPIPE) {
        return true;
    }
    pollfd p{STDOUT_FILENO, 0, 0};
    return poll(&p, 1, 0) == 1 && (p.revents & POLLERR) != 0;
}

[[noreturn]] void die_of_sigpipe() {
    std::signal(SIGPIPE, SIG_DFL);
    sigset_t pipe_only;
    sigemptyset(&pipe_only);
    sigaddset(&pipe_only, SIGPIPE);
    sigprocmask(SIG_UNBLOCK, &pipe_only, nullptr);
    std::raise(SIGPIPE);
    // Only if SIGPIPE could not kill us: the status a shell gives it.
    std::_Exit(128 + SIGPIPE);
}

bool output_failed(int error) {
    if (reader_gone(error)) {
        die_of_sigpipe();
    }
    std::fprintf(stderr, "vvlanctl: error writing the output: %s\n",
                 error != 0 ? std::strerror(error) : "write failed");
    return false;
}

} // namespace

bool flush_output() {
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    const int error = errno;
    if (flushed && std::ferror(stdout) == 0) {
        return true;
    }
    return output_failed(error);
}

bool write_output(std::string_view bytes) {
    errno = 0;
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) {
        return output_failed(errno);
    }
    return flush_output();
}

int finish_output(int status) {
    return flush_output() ? status : EXIT_UNKNOWN;
}
