// SPDX-License-Identifier: BSD-3-Clause
#include "testsupport/free_port.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace testsupport {

int free_loopback_port() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        throw std::runtime_error("no free loopback port");
    }
    close(fd);
    return ntohs(address.sin_port);
}

} // namespace testsupport
