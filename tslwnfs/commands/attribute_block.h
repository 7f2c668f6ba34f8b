// SPDX-License-Identifier: Apache-2.0
// The blocks of lines that describe an object: one for a remote object, one for a local object with small differences
// between the commands that print it. All of it goes to the command's output.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "include/tdm.h"

// A local size as "%I64d" shows it: the C library reads "I" as a flag and 64 as a width, so the number stands at the
// right of 64 columns. Written out here because that conversion would cut the value to 32 bits.
std::string format_I64d(int64_t value);

// A time in seconds since the epoch as ctime shows it, with its line feed; an empty line for a time that has no text.
std::string time_text(uint64_t seconds);

const char *yes_or_no(bool permitted);

// The three characters "rwx", with "-" for each permission that the owner lacks; bits as in a file's mode.
std::string owner_permissions(uint32_t mode);

// The nine characters of owner, group and others.
std::string all_permissions(uint32_t mode);

void print_remote_block(const TdmAttributes &attributes);

struct LocalBlockStyle {
    const char *line_end;         // behind the lines of owner, identity, access and status change
    const char *directory;        // the word for a directory
    bool serial_number;           // whether the line of the serial number stands
    bool wide_permission_labels;  // whether the permission lines have the label width of the others
};
void print_local_block(const struct stat &status, const LocalBlockStyle &style);
