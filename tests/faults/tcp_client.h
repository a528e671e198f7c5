// SPDX-License-Identifier: BSD-3-Clause
// A client on the server's TCP port. The daemon and the test fixture use the
// Unix socket, so what arrives over TCP is told apart in the server's
// MONITOR feed: it is the hostile writer's, never the daemon's.
#pragma once

#include <string>
#include <vector>

#include "testsupport/redis_client.h"

namespace faults {

class tcp_client {
  public:
    explicit tcp_client(int port);
    ~tcp_client();
    tcp_client(const tcp_client &) = delete;
    tcp_client &operator=(const tcp_client &) = delete;

    // Binary-safe; selects db first when it changes. Throws
    // std::runtime_error on I/O failure; error replies are returned.
    testsupport::reply_ptr run(int db, const std::vector<std::string> &argv);

  private:
    redisContext *context_;
    int db_ = 0;
};

} // namespace faults
