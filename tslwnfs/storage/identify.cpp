// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/identify.h"

#include <array>

#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/terminal/reasons.h"

Identification identify(const PathBuffer &path, TdmFileInfo &info) {
    std::array<char, TDM_TEXT_SIZE> error_text = {};
    Identification found = {};
    found.status = tdm_identify(ctx, path.c_str(), 0, 2, &found.code, error_text.data(),
                                static_cast<uint32_t>(error_text.size()), &info, 0);
    error_text.back() = '\0';
    if (found.failed()) terminal::note_library_text(found.status, error_text.data());
    return found;
}

FileKind identify_existing(const char *function, const PathBuffer &path, TdmFileInfo &info) {
    const Identification found = identify(path, info);
    if (!found.failed() && found.code != TDM_IDENTIFIED_LOCAL) return FileKind::remote;
    trace_message(function, Message::identify_returned, path.c_str(), found.code);
    return found.failed() ? FileKind::failed : FileKind::local;
}
