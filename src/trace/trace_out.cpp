// SPDX-License-Identifier: BSD-3-Clause
// The daemon's only output channel: plain printf to standard output, never
// flushed by the daemon (buffering is whatever stdio chooses for the stream).
#include "trace/trace.h"

#include <cstdarg>
#include <cstdio>

extern "C" int dov_vvlan_trace_printf(const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const int n = std::vprintf(format, ap);
    va_end(ap);
    return n;
}
