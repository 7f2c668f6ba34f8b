// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/reasons.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "nfstdm/base/record.h"
#include "tslwnfs/terminal/permissions.h"
#include "tslwnfs/terminal/screen.h"

namespace terminal {
namespace {

using nfstdm::Concern;

constexpr uint32_t kStale = 70;  // a stale handle, in the numbers of the storage interface

Notes notes;
Reason &library = notes.from_library;
Reason &failure = notes.failure;
Reason &remark = notes.remark;
std::string &hint = notes.hint;
std::string &aftermath = notes.aftermath;
bool asked_besides = false;
std::string trouble;  // with tslnfstab
std::string mounts;   // "the mount points are ..."

// What a line of prose does without.
std::string_view without_end(std::string_view text) {
    for (const std::string_view end : {"\n", ".", "。"})
        while (text.ends_with(end))
            text.remove_suffix(end.size());
    return text;
}

void keep(Reason reason) {
    if (failure.text.empty()) failure = std::move(reason);
}

Reason system_reason(std::string_view what, int error) {
    std::string text(without_end(what));
    if (error != 0) text = text + ": " + std::strerror(error);
    return {text, 0, error == ENOENT};
}

// The question that the server of a reason answers, by the name that tslnfstab has for it.
std::string showmount(const Reason &reason) {
    const std::string_view server = nfstdm::server_in(reason.text);
    return "tslwnfs showmount -e " + std::string(server.empty() ? "SERVER" : server);
}

// What to try.
std::string advice(const Reason &reason) {
    const Concern concern = nfstdm::concern_of(reason.text);
    switch (reason.status) {
        case ECONNREFUSED:
        case ECONNRESET:
        case EHOSTUNREACH:
        case ENETUNREACH:
        case ETIMEDOUT:
            return "is the server up, and is its address in tslnfstab right?";
        case ENOENT:
            return concern == Concern::mounting ? "does the server export that? " + showmount(reason) + " lists it"
                                                : "";
        case EACCES:
        case EPERM:
            // Only a server is asked as somebody, and what it says of security says it all.
            if (concern == Concern::security) return {};
            if (concern == Concern::host) return who_may(reason.text.substr(0, reason.text.find(": ")));
            return concern == Concern::mounting ? "does the server admit this host? " + showmount(reason) + " tells"
                                                : "the user and group that count are the caller's, unless tslnfstab "
                                                  "names others for the server";
        case EDQUOT:
        case ENOSPC:
            return "tslwnfs stat -f DIRECTORY tells what is free";
        case kStale:
            return "it was removed or replaced on the server meanwhile; try again";
        default:
            return {};
    }
}

std::string with_advice(const Reason &reason) {
    std::string more = advice(reason);  // a server that cannot be asked has not been asked for the name at all
    if (more.empty()) more = hint;
    if (more.empty() && reason.is_missing_locally) more = mounts;
    return more.empty() ? reason.text : reason.text + "; " + more;
}

void forget() {
    notes = {};
}

}  // namespace

Notes take_notes() {
    return std::exchange(notes, {});
}

void add_notes(Notes more) {
    if (!more.from_library.text.empty()) library = std::move(more.from_library);
    if (!more.failure.text.empty()) keep(std::move(more.failure));
    if (!more.remark.text.empty()) remark = std::move(more.remark);
    if (!more.hint.empty()) hint = std::move(more.hint);
    if (!more.aftermath.empty()) aftermath = std::move(more.aftermath);
}

AskedBesides::AskedBesides() {
    asked_besides = true;
}

AskedBesides::~AskedBesides() {
    asked_besides = false;
}

void note_library_reason(uint32_t status, std::string_view why) {
    if (!asked_besides) library = {std::string(why), status, false};
}

void note_library_text(uint32_t status, std::string_view why) {
    if (!library.text.starts_with(why)) note_library_reason(status, why);
}

void note_failure(std::string_view what) {
    keep({std::string(without_end(what)), 0, false});
}

bool has_failure() {
    return !failure.text.empty();
}

void note_system_failure(std::string_view what, int error, std::string_view path) {
    if (!failure.text.empty()) return;
    Reason reason = system_reason(what, error);
    const bool is_refused = error == EACCES || error == EPERM;
    const std::string others = is_refused && is_open() ? who_may(path) : "";
    if (!others.empty()) reason.text += "; " + others;
    keep(std::move(reason));
}

void note_library_failure(std::string_view what) {
    // On no mount: the caller goes on with the local file.
    if (library.text.empty() || library.status == ENODEV) return note_remark(what);
    keep(std::exchange(library, {}));
}

void note_remark(std::string_view what, int error) {
    if (!library.text.empty()) {
        remark = std::exchange(library, {});
    } else if (!what.empty()) {
        remark = system_reason(what, error);
    }
}

void note_hint(std::string_view what) {
    hint = what;
}

void note_aftermath(std::string_view what) {
    aftermath = what;
}

void note_mount_points(const std::vector<std::string> &mount_points) {
    constexpr std::size_t kShown = 5;
    mounts.clear();
    for (std::size_t i = 0; i < mount_points.size() && i < kShown; ++i)
        mounts += (i == 0 ? "a local path: the mount points are " : ", ") + mount_points[i];
    if (mount_points.size() > kShown) mounts += ", and more";
}

void note_configuration_trouble(std::string_view what) {
    trouble = what;
}

void warn_of_library_failure(std::string_view what) {
    const std::string why = std::exchange(library, {}).text;
    say("warning: " + std::string(without_end(what)) + (why.empty() ? "" : " (" + why + ")"));
}

void tell_reason() {
    const Reason *reason = &failure;
    if (reason->text.empty()) reason = &library;
    if (reason->text.empty()) reason = &remark;
    if (!reason->text.empty()) say(with_advice(*reason));
    if (!aftermath.empty()) say(aftermath);
    if (!trouble.empty()) say("warning: " + std::exchange(trouble, {}));
    forget();
}

void tell_warning() {
    if (!failure.text.empty()) say("warning: " + with_advice(failure));
    forget();
}

void tell_consequence(std::string_view consequence) {
    const Reason &reason = failure.text.empty() ? remark : failure;
    say("warning: " + reason.text + "; " + std::string(consequence));
    forget();
}

}  // namespace terminal
