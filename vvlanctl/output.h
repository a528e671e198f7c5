// SPDX-License-Identifier: BSD-3-Clause
// Standard output as a filter's: a reader that went away (the end of
// "| head -1") ends the tool by SIGPIPE, the status a shell expects of a
// pipeline; any other failure to write is an error, never a silent success.
// SIGPIPE itself stays ignored while the tool runs, so that a server that
// closes its socket gives an error status instead of killing the tool.
#pragma once

#include <string_view>

// Flushes standard output. False when it could not be written (the reason is
// on standard error already); does not return when its reader is gone.
bool flush_output();

// Writes bytes to standard output and flushes them, with flush_output's
// verdicts: false when they could not be written (said on standard error).
bool write_output(std::string_view bytes);

// The status to exit with after a command returned status: status itself
// when everything it printed was written, else the "could not write" one.
int finish_output(int status);
