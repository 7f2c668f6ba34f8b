// SPDX-License-Identifier: Apache-2.0
// The trace and log streams: opened by the command line, closed on every way out of the program.
#pragma once

// Each opens a stream, puts it into octx and switches it on. False on failure, with errno set and octx as it was.
[[nodiscard]] bool open_trace_file(const char *name);
[[nodiscard]] bool open_trace_on_standard_error();
[[nodiscard]] bool open_log_file(const char *name);

// Closes the log and switches it off. False when not everything written to it arrived.
bool close_log();

// What becomes of a run whose standard output or log did not arrive.
enum class LostOutput : bool { fails, keeps_status };

// Closes both streams and flushes standard output; what did not arrive is traced and told at a terminal. Returns
// status, or 1 in place of 0 when what was lost makes the run fail. An incomplete trace never does.
int finish_output(int status, LostOutput lost = LostOutput::fails);

// The same for exit(), which some commands call in the middle of a transfer.
void finish_output_at_exit();
