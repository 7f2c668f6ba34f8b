// SPDX-License-Identifier: Apache-2.0
// The texts that answer a wrong command line, and help. All go to standard output, log or not.
#pragma once

// The banner line and the usage messages.
void print_usage();

// The same and three lines about the program.
void print_help();

// The options of dd.
void print_dd_help();
