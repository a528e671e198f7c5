// SPDX-License-Identifier: BSD-3-Clause
// Host stand-in for the process-health agent: it only says what it was asked,
// so that tests can check the daemon registered with it, and returns what the
// test chose.
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#pragma GCC visibility push(default)
#include "ham_agent.h"
#pragma GCC visibility pop

namespace {

// strtoll alone would accept leading blanks and an empty text.
bool starts_like_integer(const char *text) {
    const char *digits = text[0] == '-' || text[0] == '+' ? text + 1 : text;
    return std::isdigit(static_cast<unsigned char>(digits[0])) != 0;
}

// The result a test asked for in variable, or 0. A value that is not an
// integer is a mistake in the test, reported rather than read as 0.
int result_from_env(const char *variable) {
    const char *text = std::getenv(variable);
    if (text == nullptr) {
        return 0;
    }
    char *end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    if (!starts_like_integer(text) || errno != 0 || *end != '\0' || value < INT_MIN ||
        value > INT_MAX) {
        std::fprintf(stderr, "ham: %s \"%s\" is not an integer\n", variable, text);
        return -1;
    }
    return static_cast<int>(value);
}

} // namespace

int ham_agent_init(void) {
    std::fputs("ham: ham_agent_init()\n", stderr);
    std::fflush(stderr);
    return result_from_env("HAM_AGENT_INIT_RESULT");
}

int reg_process_exit_action(int action, int arg) {
    std::fprintf(stderr, "ham: reg_process_exit_action(%d, %d)\n", action, arg);
    std::fflush(stderr);
    return result_from_env("HAM_AGENT_REG_RESULT");
}
