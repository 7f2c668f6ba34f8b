// SPDX-License-Identifier: Apache-2.0
// Reading the target of a symbolic link.
#include <unistd.h>

#include <array>

#include "include/tdm.h"
#include "platform/paths.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/options.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/resolve.h"

namespace {

constexpr const char *kFunction = "read_link";

// Gives the target's text. A local target that fills the whole buffer may be longer still: it is refused.
bool read_local_target(const PathBuffer &link, PathBuffer &text) {
    std::array<char, PathBuffer::kSize> bytes;
    const LocalPlace place = local_place(link.c_str());
    const ssize_t length = readlinkat(place.directory, place.name, bytes.data(), bytes.size());
    if (length < 0) return false;
    const std::string_view target(bytes.data(), static_cast<std::size_t>(length));
    if (text.assign(target)) return true;
    trace_message(kFunction, Message::path_unresolvable, link.c_str());
    return false;
}

// A relative target starts at the link's own directory, wherever the process stands.
bool normalize_target(const PathBuffer &link, const PathBuffer &text, PathBuffer &target) {
    PathBuffer absolute;
    bool fits = true;
    if (!text.empty() && text.view().front() != '/') {
        const std::size_t separator = last_separator(link.view());
        const std::size_t directory_length = separator == std::string_view::npos ? 0 : separator + 1;
        fits = absolute.assign(link.view().substr(0, directory_length));
    }
    fits = fits && absolute.append(text.view());
    if (fits && platform_normalize_path(absolute.view(), target)) return true;
    trace_message(kFunction, Message::path_unresolvable, text.c_str());
    return false;
}

}  // namespace

uint32_t read_link(const Operand &path, PathBuffer &target) {
    target.clear();
    PathBuffer resolved;
    if (!resolve_operand(kFunction, path, resolved)) return 1;

    PathBuffer text;
    uint32_t location = 0;
    const uint32_t status = tdm_readlink(ctx, resolved.c_str(), text.writable(), &location);
    text.measure();
    if (status == 0 && location > TDM_LOCATION_LOST) return 0;
    if (status != 0 || location != TDM_LOCATION_REMOTE) {
        trace_message(kFunction, Message::readlink_location, resolved.c_str(), location);
        if (status != 0 || location != TDM_LOCATION_LOCAL) return 1;
        if (!read_local_target(resolved, text)) return 1;
    }
    return normalize_target(resolved, text, target) ? 0 : 1;
}
