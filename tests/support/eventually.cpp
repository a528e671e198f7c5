// SPDX-License-Identifier: BSD-3-Clause
#include "testsupport/eventually.h"

#include <thread>

namespace testsupport {

bool eventually(const std::function<bool()> &predicate, std::chrono::milliseconds deadline,
                std::chrono::milliseconds step) {
    const auto until = std::chrono::steady_clock::now() + deadline;
    for (;;) {
        if (predicate()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(step);
    }
}

} // namespace testsupport
