// SPDX-License-Identifier: BSD-3-Clause
// Waiting for a condition without fixed sleeps.
#pragma once

#include <chrono>
#include <functional>

namespace testsupport {

// Evaluates predicate every step until it holds (true) or deadline has passed
// (false, after one last evaluation).
bool eventually(const std::function<bool()> &predicate, std::chrono::milliseconds deadline,
                std::chrono::milliseconds step = std::chrono::milliseconds(10));

} // namespace testsupport

// GoogleTest checks that a condition becomes true within deadline (a
// std::chrono duration) and print the condition when it does not. The
// condition comes last so that it may contain commas.
//   EXPECT_EVENTUALLY(2s, handler_calls() == 3);
#define TESTSUPPORT_EVENTUALLY_(check, deadline, ...)                                              \
    check(::testsupport::eventually(                                                               \
        [&] { return static_cast<bool>(__VA_ARGS__); },                                            \
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline)))                          \
        << "still false after "                                                                    \
        << std::chrono::duration_cast<std::chrono::milliseconds>(deadline).count()                 \
        << " ms: " #__VA_ARGS__
#define EXPECT_EVENTUALLY(deadline, ...) TESTSUPPORT_EVENTUALLY_(EXPECT_TRUE, deadline, __VA_ARGS__)
#define ASSERT_EVENTUALLY(deadline, ...) TESTSUPPORT_EVENTUALLY_(ASSERT_TRUE, deadline, __VA_ARGS__)
