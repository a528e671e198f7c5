// SPDX-License-Identifier: BSD-3-Clause
#include "fake_trace.h"

#include "fake_bus.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <thread>

namespace fake {
namespace {

std::mutex g_mutex;
std::vector<std::string> g_lines;
std::vector<std::thread::id> g_threads;
long g_calls = 0;

std::vector<expected_line> lines_by_thread(bool here) {
    std::vector<std::string> lines;
    std::vector<std::thread::id> threads;
    {
        const std::lock_guard<std::mutex> lock(g_mutex);
        lines = g_lines;
        threads = g_threads;
    }
    std::vector<expected_line> out;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if ((threads[i] == std::this_thread::get_id()) == here) {
            const trace_line t = parse_trace_line(lines[i]);
            out.push_back({t.func, t.level, t.text});
        }
    }
    return out;
}

} // namespace

std::vector<std::string> raw_trace() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_lines;
}

void clear_trace() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_lines.clear();
    g_threads.clear();
    g_calls = 0;
}

long trace_sink_calls() {
    const std::lock_guard<std::mutex> lock(g_mutex);
    return g_calls;
}

std::vector<trace_line> trace() {
    std::vector<trace_line> out;
    for (const std::string &raw : raw_trace()) {
        out.push_back(parse_trace_line(raw));
    }
    return out;
}

std::vector<expected_line> trace_lines() {
    std::vector<expected_line> out;
    for (const trace_line &t : trace()) {
        out.push_back({t.func, t.level, t.text});
    }
    return out;
}

std::vector<expected_line> trace_lines_here() {
    return lines_by_thread(true);
}
std::vector<expected_line> trace_lines_elsewhere() {
    return lines_by_thread(false);
}

std::vector<std::string> trace_texts() {
    std::vector<std::string> out;
    for (const trace_line &t : trace()) {
        out.push_back(t.text);
    }
    return out;
}

} // namespace fake

// Lean: formatted onto /dev/null, as printf formats onto a console, and
// counted.
extern "C" int dov_vvlan_trace_printf(const char *format, ...) {
    if (!fake::recording()) {
        static FILE *sink = std::fopen("/dev/null", "w");
        va_list ap;
        va_start(ap, format);
        const int n = std::vfprintf(sink, format, ap);
        va_end(ap);
        return n;
    }
    char buf[1024];
    va_list ap;
    va_start(ap, format);
    const int n = std::vsnprintf(buf, sizeof buf, format, ap);
    va_end(ap);
    const std::lock_guard<std::mutex> lock(fake::g_mutex);
    ++fake::g_calls;
    fake::g_lines.emplace_back(buf);
    fake::g_threads.push_back(std::this_thread::get_id());
    return n;
}
