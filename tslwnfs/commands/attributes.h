// SPDX-License-Identifier: Apache-2.0
// getattr and setattr, and the type test that nearly every other command makes first.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>

#include "include/tdm.h"
#include "tslwnfs/storage/operand.h"

// What getattrdir found. Exactly one record is set after a result other than 1; none when the storage interface
// answered with a location code above 3, which callers that need a record treat as a failure.
struct AttrResult {
    uint8_t is_local = 0;
    std::unique_ptr<TdmAttributes> remote;
    std::unique_ptr<struct stat> local;

    bool empty() const { return !remote && !local; }
};

enum AttrType : uint32_t { kTypeDirectory = 0, kTypeFailure = 1, kTypeRegular = 2, kTypeLink = 3 };

// Returns an AttrType; 0 also for types other than regular files and links, and after the block was printed. An
// existing remote path that is not a directory is always remarked upon in the output ("%s not a directory", no line
// feed). A local link is not followed.
uint32_t getattrdir(const Operand &path, AttrResult &result, int32_t print_block);

// True when a path, tested as a destination, is a directory: getattrdir says 0, or says 3 and the link is a local one
// that leads to a directory. In a tree that is walked no link counts.
bool is_directory_destination(const Operand &path);

// Asks permission by permission and sets those of a directory. Returns 0 or 1.
uint32_t setattrdir(const Operand &path);
