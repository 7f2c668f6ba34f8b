// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/early_reads.h"

#include <algorithm>
#include <utility>

namespace nfstdm {
namespace {

bool is_small(const Place &place) {
    const Attributes &attributes = place.object->attributes;
    const std::size_t most =
        std::min<std::size_t>(EarlyReads::kFileMaximum, place.mount->volume().limits().read_maximum - 1);
    return attributes.type == FileType::regular && attributes.size > 0 && attributes.size <= most;
}

bool is_same_content(const Attributes &then, const Attributes &now) {
    return now.size == then.size && now.modification == then.modification && now.change == then.change;
}

}  // namespace

void EarlyReads::expect(std::string_view path) {
    const auto place = known_place(mounts_, path);
    if (!place || !is_small(*place)) return;
    if (files_.size() == kFilesMaximum) files_.pop_front();
    auto buffer = pool_.take(place->object->attributes.size);
    if (!buffer) return;
    auto read = std::make_shared<EarlyRead>();
    read->buffer = std::move(*buffer);
    const auto file = place->mount->volume().open(place->object->handle, Access::read);
    file->read(0, read->buffer.span(), [read](Result<ReadReply> reply) { read->arrive(std::move(reply)); });
    files_.push_back({place->mount, *place->object, std::move(read)});
}

// What is known of the file now is no older than what its READ brought, or it is what was known when that was asked.
std::shared_ptr<EarlyRead> EarlyReads::take(const Place &place) {
    const auto found = std::ranges::find_if(files_, [&place](const File &file) {
        return file.mount == place.mount && file.object.handle == place.object->handle;
    });
    if (found == files_.end()) return nullptr;
    const bool is_unchanged = is_same_content(found->object.attributes, place.object->attributes);
    auto read = is_unchanged ? std::move(found->read) : nullptr;
    files_.erase(found);
    return read;
}

}  // namespace nfstdm
