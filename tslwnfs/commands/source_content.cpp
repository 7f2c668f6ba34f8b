// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/source_content.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/sparse_file.h"

SourceContent::SourceContent(const SourceFile &source, const DestinationFile &destination)
    : source_(source),
      destination_(destination),
      may_skip_(!destination.local || may_have_holes(destination.stream.get())),
      old_end_(destination.local || destination.created ? 0 : destination.info.size),
      // Files without holes are not asked piece by piece.
      holes_known_(may_skip_ && (!source.local || takes_less_than_its_size(source.stream.get()))) {}

ContentRange SourceContent::next(uint64_t offset) {
    const ContentRange rest{offset, source_.size};
    if (!holes_known_) return rest;
    if (offset < old_end_) return {offset, std::min(old_end_, source_.size)};
    ContentRange found;
    holes_known_ =
        source_.local ? find_local(offset, found) : next_extent(source_.info.file, offset, found.begin, found.end) == 0;
    const bool sound = found.begin >= offset && (found.end > found.begin || found.begin >= source_.size);
    if (!holes_known_ || !sound) return rest;
    return {std::min(found.begin, source_.size), std::min(found.end, source_.size)};
}

// The stream must find its descriptor where it left it.
bool SourceContent::find_local(uint64_t offset, ContentRange &found) const {
    FILE *const stream = source_.stream.get();
    const int descriptor = fileno(stream);
    const off_t before = lseek(descriptor, 0, SEEK_CUR);
    const off_t begin = lseek(descriptor, static_cast<off_t>(offset), SEEK_DATA);
    const bool nothing = begin < 0 && errno == ENXIO;
    const off_t end = begin < 0 ? begin : lseek(descriptor, begin, SEEK_HOLE);
    if (before < 0 || lseek(descriptor, before, SEEK_SET) < 0) return false;
    if (nothing) {
        found = {source_.size, source_.size};
        return true;
    }
    if (begin < 0 || end < 0) return false;
    found = {static_cast<uint64_t>(begin), static_cast<uint64_t>(end)};
    return fseeko(stream, begin, SEEK_SET) == 0;
}
