// SPDX-License-Identifier: BSD-3-Clause
// This tree builds vvlanctl: the fault tests run its check on the faulted
// server and on the fresh one.
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <stdexcept>

#include "vvlanctl_check.h"

#ifndef DOV_VVLAN_VVLANCTL
#error "DOV_VVLAN_VVLANCTL must name the vvlanctl binary"
#endif

namespace faults {

std::optional<check_result> run_vvlanctl_check(const std::string &socket_path) {
    // The tool finds the server as the bus library does.
    const std::string command =
        "TUKREDIS_SOCKET='" + socket_path + "' '" DOV_VVLAN_VVLANCTL "' check --json";
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + command);
    }
    std::string output;
    std::array<char, 4096> buf{};
    std::size_t n = 0;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) {
        output.append(buf.data(), n);
    }
    const int status = pclose(pipe);
    check_result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, {}, output};
    result.found = parse_check_json(output);
    return result;
}

} // namespace faults
