// SPDX-License-Identifier: BSD-3-Clause
// The write log's state, for the host reset.
#pragma once

namespace tukredis {

void out_log_reset();

} // namespace tukredis
