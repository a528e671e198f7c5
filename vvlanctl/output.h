// SPDX-License-Identifier: BSD-3-Clause
// Standard output as a filter's: a reader that went away (the end of
// "| head -1") ends the tool by SIGPIPE, the status a shell expects of a
// pipeline; any other failure to write is an error, never a silent success.
// SIGPIPE itself stays ignored while the tool runs, so that a server that
// closes its socket gives an error status instead of killing the tool.
#pragma once

// Flushes standard output. False when it could not be written (the reason is
// on standard error already); does not return when its reader is gone.
bool flush_output();

// The status to exit with after a command returned status: status itself
// when everything it printed was written, else the "could not write" one.
int finish_output(int status);
