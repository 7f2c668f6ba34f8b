// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/message_reasons.h"

#include "tslwnfs/terminal/reasons.h"

namespace {

// A text without the number, which the trace shows for whoever looks it up.
std::string_view without_number(std::string_view text) {
    constexpr std::string_view kPrefix = "TWNFS-";
    const std::size_t colon = text.find(": ");
    return text.starts_with(kPrefix) && colon != std::string_view::npos ? text.substr(colon + 2) : text;
}

}  // namespace

void note_message(ReasonSource source, std::string_view text, int error, std::string_view path) {
    const std::string_view what = without_number(text);
    switch (source) {
        case ReasonSource::own:
            return terminal::note_failure(what);
        case ReasonSource::system:
            return terminal::note_system_failure(what, error, path);
        case ReasonSource::library:
            return terminal::note_library_failure(what);
        case ReasonSource::library_and_goes_on:
            return terminal::warn_of_library_failure(what);
        case ReasonSource::library_perhaps:
            return terminal::note_remark({});
        case ReasonSource::remark:
            return terminal::note_remark(what, error);
    }
}
