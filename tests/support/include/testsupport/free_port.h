// SPDX-License-Identifier: BSD-3-Clause
// A TCP port for a test's own server on the loopback address.
#pragma once

namespace testsupport {

// A loopback port nobody listens on at the moment of asking (the kernel's
// choice). Throws std::runtime_error when no socket can be bound.
int free_loopback_port();

} // namespace testsupport
