// SPDX-License-Identifier: BSD-3-Clause
// The daemon's only output channel: plain printf to standard output, which
// main makes line-buffered, so each trace line is written out whole as it is
// printed; nothing here flushes.
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
