// SPDX-License-Identifier: Apache-2.0
// The end of a run in the middle of a transfer: it never goes on over a hole.
#pragma once

// Tells why, and ends the process with status 1.
[[noreturn]] void end_process();

// For a worker process, whose end is not the run's: is called instead, and does not return.
void when_process_ends(void (*action)());
