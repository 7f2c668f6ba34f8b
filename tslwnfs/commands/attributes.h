// SPDX-License-Identifier: Apache-2.0
// getattr and setattr, and the type test that nearly every other command makes first.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>

#include "include/tdm.h"
#include "tslwnfs/output/printing.h"
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

// What a path leads to, for a command that acts on it. getattrdir does not tell directories from the fifos, sockets and
// devices that nothing may descend into.
enum class Kind : uint8_t { missing, directory, regular, link, special };

// Asks getattrdir, without printing a block. Where the storage interface gave no record, its 0 is a directory.
Kind kind_of(const Operand &path, AttrResult &result);

// The same for a destination: a local link that leads to a directory or special file is that, outside of a tree that is
// walked.
Kind destination_kind(const Operand &path, AttrResult &result);

// Whether reading a source would mean a special file: kind and attributes are what kind_of() gave, and a local link is
// followed.
bool leads_to_special(const PathBuffer &path, Kind kind, const AttrResult &attributes);

// True when a path, tested as a destination, is a directory. In a tree that is walked no link counts.
bool is_directory_destination(const Operand &path);

// Asks permission by permission and sets those of a directory. Returns 0 or 1.
uint32_t setattrdir(const Operand &path);
