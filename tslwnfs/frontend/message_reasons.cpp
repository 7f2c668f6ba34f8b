// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/message_reasons.h"

#include "tslwnfs/terminal/reasons.h"

namespace {

enum class Source : uint8_t { own, system, library, library_and_goes_on, library_perhaps, remark };

// Who knows more about what a message reports.
Source source_of(Message message) {
    switch (message) {
        case Message::identify_returned:
        case Message::getattr_location:
            return Source::library_perhaps;
        case Message::status_unreadable:
        case Message::not_a_directory:
        case Message::positioning_failed:
            return Source::remark;
        case Message::log_unopenable:
        case Message::local_directory_unopenable:
        case Message::directory_not_removed:
        case Message::file_not_deleted:
        case Message::file_unreadable:
        case Message::file_unopenable:
        case Message::directory_not_created:
        case Message::library_not_copied:
            return Source::system;
        case Message::session_failed:
        case Message::thread_registration_failed:
        case Message::discover_failed:
        case Message::create_failed:
        case Message::remote_delete_failed:
        case Message::directory_unlisted:
        case Message::reidentify_failed:
        case Message::readlink_location:
        case Message::readdir_location:
        case Message::resize_failed:
        case Message::fsstat_location:
        case Message::mkdir_location:
        case Message::request_incomplete:
        case Message::fsinfo_location:
        case Message::setattr_location:
        case Message::rmdir_location:
        case Message::request_not_submitted:
        case Message::write_completed_with:
            return Source::library;
        case Message::commit_failed:
        case Message::unidentify_failed:
            return Source::library_and_goes_on;
        default:
            return Source::own;
    }
}

// A text without the number, which the trace shows for whoever looks it up.
std::string_view without_number(std::string_view text) {
    constexpr std::string_view kPrefix = "TWNFS-";
    const std::size_t colon = text.find(": ");
    return text.starts_with(kPrefix) && colon != std::string_view::npos ? text.substr(colon + 2) : text;
}

}  // namespace

void note_message(Message message, std::string_view text, int error) {
    const std::string_view what = without_number(text);
    switch (source_of(message)) {
        case Source::own:
            return terminal::note_failure(what);
        case Source::system:
            return terminal::note_system_failure(what, error);
        case Source::library:
            return terminal::note_library_failure(what);
        case Source::library_and_goes_on:
            return terminal::warn_of_library_failure(what);
        case Source::library_perhaps:
            return terminal::note_remark({});
        case Source::remark:
            return terminal::note_remark(what, error);
    }
}
