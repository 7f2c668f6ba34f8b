// SPDX-License-Identifier: Apache-2.0
// What the ways to an object end with, whatever they begin with: its handle and its attributes.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "nfstdm/nfs4/compound.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

// Handle and attributes of the current object.
void put_object(Compound &compound);
bool get_object(Results &results, FileHandle &handle, std::optional<Attributes> &attributes);

// The same for what was just made, and its directory as it is then. It counts as made even when the server does not
// tell: were it asked to make it once more, it would refuse.
void put_made(Compound &compound, const FileHandle &directory);
bool get_made(Results &results, const FileHandle &directory, CreateReply &reply);

// A name in the current directory; what has it is current then.
void put_looked_up(Compound &compound, std::string_view name);
constexpr std::size_t kOperationsOfALookup = 3;
// The answers for count names, each in the directory before, as far as the server got. False only for nonsense: that
// the rest was refused stands in results, and in the reply where a LOOKUP was.
bool get_path(Results &results, std::size_t count, PathReply &reply);

// The attributes of a directory behind a change in it.
bool get_after(Results &results, const FileHandle &directory, DirectoryChange &change);
// What was to be told besides is not, though what was asked for is done: the caller asks for it by itself.
inline bool was_refused(const Results &results) {
    return results.failure() != NfsStatus::ok;
}

}  // namespace nfstdm::nfs4
