// SPDX-License-Identifier: BSD-3-Clause
// Trace lines on standard output, filtered by one global level word.
//
// A line of level L is printed when the word is exactly 32, or when the word
// AND L is non-zero. So 34 prints error lines only and 48 prints nothing:
// 32 is compared as a whole word, not as a bit. The filter is the first
// thing evaluated; a filtered-out trace costs one load and a compare and
// never calls getpid or formats anything.
#pragma once

#include <atomic>
#include <cstdint>
#include <unistd.h>

inline constexpr uint32_t DBG_INFO = 1;
inline constexpr uint32_t DBG_ERROR = 2;
inline constexpr uint32_t DBG_ALL = 32;

// Written only by dov_vvlan_set_dbg on the main thread, read by both
// threads. Relaxed atomics are plain aligned loads and stores on the
// target; a line decided on a stale value is harmless.
extern std::atomic<uint32_t> dov_vvlan_dbg_level;

inline bool dov_vvlan_trace_on(uint32_t level) {
    const uint32_t word = dov_vvlan_dbg_level.load(std::memory_order_relaxed);
    return word == DBG_ALL || (word & level) != 0;
}

// Prints one whole line with a single printf-family call, so lines of the
// two threads never mix within a line. Lives in its own file so that the
// unit tests can link a recording sink instead.
extern "C" int dov_vvlan_trace_printf(const char *format, ...)
    __attribute__((format(printf, 1, 2)));

// Where a line says it comes from: the function's name and the source line.
// A step shared by several functions takes its caller's site, so its lines
// carry the caller's name as they always have.
struct trace_site {
    const char *func;
    int line;
};
#define TRACE_SITE (trace_site{__func__, __LINE__})

// "<function: line>[pid](level)" + text + "\r\n"
#define VVLAN_TRACE_AT(site, level, fmt, ...)                                                      \
    do {                                                                                           \
        if (dov_vvlan_trace_on(level)) {                                                           \
            dov_vvlan_trace_printf("<%s: %d>[%d](%d)" fmt "\r\n", (site).func, (site).line,        \
                                   static_cast<int>(getpid()),                                     \
                                   static_cast<int>(level) __VA_OPT__(, ) __VA_ARGS__);            \
        }                                                                                          \
    } while (0)

#define VVLAN_TRACE(level, fmt, ...)                                                               \
    VVLAN_TRACE_AT(TRACE_SITE, level, fmt __VA_OPT__(, ) __VA_ARGS__)

#define TRACE_INFO(fmt, ...) VVLAN_TRACE(DBG_INFO, fmt __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_ERR(fmt, ...) VVLAN_TRACE(DBG_ERROR, fmt __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_INFO_AT(site, fmt, ...) VVLAN_TRACE_AT(site, DBG_INFO, fmt __VA_OPT__(, ) __VA_ARGS__)
#define TRACE_ERR_AT(site, fmt, ...) VVLAN_TRACE_AT(site, DBG_ERROR, fmt __VA_OPT__(, ) __VA_ARGS__)

// The record line every handler traces. The key is printed with a bound so
// that a record from a misbehaving library can never be over-read.
#define TRACE_PMSG_AT(site, p)                                                                     \
    TRACE_INFO_AT(site, "pmsg db=%d key=%.128s cmd=%d", (p)->db, (p)->key, (p)->cmd)
#define TRACE_PMSG(p) TRACE_PMSG_AT(TRACE_SITE, p)
