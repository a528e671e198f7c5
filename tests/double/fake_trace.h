// SPDX-License-Identifier: BSD-3-Clause
// The recording trace sink: every line the daemon prints, and a parser of
// the line format "<function: line>[pid](level)text\r\n".
#pragma once

#include <string>
#include <vector>

#include "trace_line.h"

namespace fake {

using testcommon::trace_line;

// What a test expects of a line: the function, the level and the text.
struct expected_line {
    std::string func;
    int level;
    std::string text;
    bool operator==(const expected_line &) const = default;
};

std::vector<std::string> raw_trace();
std::vector<trace_line> trace();
std::vector<expected_line> trace_lines();           // every line as (func, level, text)
std::vector<std::string> trace_texts();             // the texts only
std::vector<expected_line> trace_lines_here();      // only lines printed by the calling thread
std::vector<expected_line> trace_lines_elsewhere(); // only lines of other threads
long trace_sink_calls();
void clear_trace();

using testcommon::parse_trace_line;

} // namespace fake
