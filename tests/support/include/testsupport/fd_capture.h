// SPDX-License-Identifier: BSD-3-Clause
// Capturing what a library writes on a file descriptor.
#pragma once

#include <string>
#include <unistd.h>

namespace testsupport {

// Redirects a file descriptor (stderr by default) into an unlinked temporary
// file until stop() or destruction, so that a test can read what was written
// there. A file rather than a pipe: a pipe would block the writer once full.
class fd_capture {
  public:
    explicit fd_capture(int fd = STDERR_FILENO);
    ~fd_capture();
    fd_capture(const fd_capture &) = delete;
    fd_capture &operator=(const fd_capture &) = delete;

    // Everything written so far (stdio buffers are flushed first).
    std::string text() const;
    // Restores the descriptor; text() still works afterwards.
    void stop();

  private:
    int fd_;
    int saved_ = -1;
    int file_ = -1;
};

} // namespace testsupport
