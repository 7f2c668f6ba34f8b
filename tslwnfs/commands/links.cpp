// SPDX-License-Identifier: Apache-2.0
// Reading the target of a symbolic link.
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "include/tdm.h"
#include "platform/paths.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/real_path.h"
#include "tslwnfs/storage/resolve.h"

namespace {

constexpr const char *kReadLink = "read_link";

// Gives the target's text. A local target that fills the whole buffer may be longer still: it is refused.
bool read_local_target(const PathBuffer &link, PathBuffer &text) {
    std::array<char, PathBuffer::kSize> bytes;
    const LocalPlace place = local_place(link.c_str());
    const ssize_t length = readlinkat(place.directory, place.name, bytes.data(), bytes.size());
    if (length < 0) return false;
    const std::string_view target(bytes.data(), static_cast<std::size_t>(length));
    if (text.assign(target)) return true;
    trace_message(kReadLink, Message::path_unresolvable, link.c_str());
    return false;
}

bool goes_up(std::string_view text) {
    return text == ".." || text.starts_with("../") || text.ends_with("/..") || text.find("/../") != text.npos;
}

// A relative target starts at the link's own directory, wherever the process stands; one that goes up, at the directory
// that really holds the link.
bool normalize_target(const PathBuffer &link, const PathBuffer &text, bool is_local, PathBuffer &target) {
    std::string absolute;
    if (!text.empty() && text.view().front() != '/') {
        const std::size_t slash = link.view().rfind('/');
        absolute = link.view().substr(0, slash == std::string_view::npos ? 0 : slash + 1);
    }
    absolute += text.view();
    if (goes_up(text.view())) {
        absolute = is_local ? real_local_path(absolute) : real_remote_path(absolute, LastComponent::kept);
    }
    if (platform_normalize_path(absolute, target)) return true;
    trace_message(kReadLink, Message::path_unresolvable, text.c_str());
    return false;
}

// Whether a path is on no mount.
bool lies_here(const PathBuffer &path) {
    TdmAttributes attributes = {};
    uint32_t location = 0;
    return tdm_getattr(ctx, path.c_str(), &attributes, &location) == 0 && location == TDM_LOCATION_LOCAL;
}

}  // namespace

uint32_t read_link(const Operand &path, PathBuffer &target) {
    target.clear();
    PathBuffer resolved;
    if (!resolve_operand(kReadLink, path, resolved)) return 1;

    PathBuffer text;
    uint32_t location = 0;
    const uint32_t status = tdm_readlink(ctx, resolved.c_str(), text.writable(), &location);
    text.measure();
    if (status == 0 && location > TDM_LOCATION_LOST) return 0;
    if (status != 0 || location != TDM_LOCATION_REMOTE) {
        trace_message(kReadLink, Message::readlink_location, resolved.c_str(), location);
        if (status != 0 || location != TDM_LOCATION_LOCAL) return 1;
        if (!read_local_target(resolved, text)) return 1;
    }
    return normalize_target(resolved, text, location == TDM_LOCATION_LOCAL, target) ? 0 : 1;
}

bool leads_off_server(const char *function, const PathBuffer &link, const PathBuffer &target) {
    if (!lies_here(target) || lies_here(link)) return false;
    trace_failure(function, "%s leads to %s, which is on no mount: %s", link.c_str(), target.c_str(),
                  std::strerror(EXDEV));
    return true;
}
