// SPDX-License-Identifier: Apache-2.0
// The operations that a storage library may lack. Each fails with ENOTSUP where it does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "include/tdm.h"

// Has a server copy between two of its open files; the arguments and the promise are those of tdm_copy.
struct ServerCopyRange {
    uint64_t source;  // identifiers of the files
    uint64_t source_offset;
    uint64_t destination;
    uint64_t destination_offset;
    uint64_t count;  // bytes, above 0
};
uint32_t copy_by_server(const ServerCopyRange &range, uint64_t &copied);

// Makes a remote file that begins with content, some bytes of it, as tdm_createwith does: they count as written. text
// takes the file's name or why it was not made.
bool can_create_with_content();
uint32_t create_with_content(const char *path, std::span<const std::byte> content, std::span<char> text,
                             TdmFileInfo &info);

// Says that a directory is going to be listed, and then most of its entries asked for their attributes: those of the
// listing will do.
void expect_attributes(const char *path);

// Says that a path is going to be used, so that the way to its server is made meanwhile.
void expect_use(const char *path);

// Says that a file is going to be read as a whole after those that come before it: a small one is on its way then.
void expect_content(const char *path);

// Says that a file is going to be deleted after those that come before it, whatever becomes of them. True when that has
// begun: then this process is to call tdm_delete for it.
bool expect_deletion(const char *path);

// What the library knows of a path, for this session as a forked process has it; empty where it knows nothing. The
// other process learns it. Nobody is told whether that succeeds: what is not known is asked for.
std::string known_of(const char *path);
void learn_known(std::string_view record);

// The next bytes of an open remote file where they lie, as tdm_lend gives them: some, at most so many, or none, where
// the caller is to read. They stay until the library is called again.
std::span<const std::byte> lend_bytes(uint64_t file, uint64_t offset, uint32_t most);

// The next bytes of an open remote file that are no hole, as tdm_extent tells them.
uint32_t next_extent(uint64_t file, uint64_t offset, uint64_t &begin, uint64_t &end);

// How far the server has taken what an open remote file was given to write, as tdm_written tells it.
uint32_t written_so_far(uint64_t file, uint32_t milliseconds, uint64_t &end);
