// SPDX-License-Identifier: BSD-3-Clause
#include "testsupport/fd_capture.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>

namespace testsupport {

fd_capture::fd_capture(int fd) : fd_(fd) {
    const char *tmp = std::getenv("TMPDIR");
    std::string path = std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/cap-XXXXXX";
    file_ = mkostemp(path.data(), O_CLOEXEC);
    if (file_ < 0) {
        throw std::runtime_error("mkostemp: " + std::string(std::strerror(errno)));
    }
    unlink(path.c_str());
    std::fflush(nullptr);
    saved_ = fcntl(fd_, F_DUPFD_CLOEXEC, 0);
    if (saved_ < 0 || dup2(file_, fd_) < 0) {
        const int error = errno;
        close(file_);
        throw std::runtime_error("redirecting fd: " + std::string(std::strerror(error)));
    }
}

fd_capture::~fd_capture() {
    stop();
    close(file_);
}

void fd_capture::stop() {
    if (saved_ < 0) {
        return;
    }
    std::fflush(nullptr);
    dup2(saved_, fd_);
    close(saved_);
    saved_ = -1;
}

std::string fd_capture::text() const {
    std::fflush(nullptr);
    std::string text;
    char buffer[4096];
    off_t at = 0;
    for (;;) {
        const ssize_t n = pread(file_, buffer, sizeof buffer, at);
        if (n <= 0) {
            break;
        }
        text.append(buffer, static_cast<size_t>(n));
        at += n;
    }
    return text;
}

} // namespace testsupport
