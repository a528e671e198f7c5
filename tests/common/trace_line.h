// SPDX-License-Identifier: BSD-3-Clause
// The daemon's trace line, "<function: line>[pid](level)text\r\n", taken
// apart for assertions.
#pragma once

#include <string>

namespace testcommon {

struct trace_line {
    std::string func;
    int line = 0;
    int pid = 0;
    int level = 0;
    std::string text;
    bool well_formed = false;
};

// raw may carry its "\r\n" (require_crlf) or come already split on it.
inline trace_line parse_trace_line(const std::string &raw, bool require_crlf = true) {
    trace_line t;
    std::string body = raw;
    if (require_crlf) {
        if (body.size() < 2 || body.compare(body.size() - 2, 2, "\r\n") != 0) {
            return t;
        }
        body.resize(body.size() - 2);
    }
    if (body.empty() || body[0] != '<') {
        return t;
    }
    const std::size_t colon = body.find(": ");
    const std::size_t close = colon == std::string::npos ? colon : body.find(">[", colon);
    const std::size_t pid_end = close == std::string::npos ? close : body.find("](", close);
    const std::size_t level_end = pid_end == std::string::npos ? pid_end : body.find(')', pid_end);
    if (level_end == std::string::npos) {
        return t;
    }
    try {
        t.func = body.substr(1, colon - 1);
        t.line = std::stoi(body.substr(colon + 2, close - colon - 2));
        t.pid = std::stoi(body.substr(close + 2, pid_end - close - 2));
        t.level = std::stoi(body.substr(pid_end + 2, level_end - pid_end - 2));
    } catch (...) {
        return t;
    }
    t.text = body.substr(level_end + 1);
    t.well_formed = t.line > 0 && t.pid > 0;
    return t;
}

} // namespace testcommon
