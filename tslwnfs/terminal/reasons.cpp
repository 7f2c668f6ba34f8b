// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/reasons.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "tslwnfs/terminal/screen.h"

namespace terminal {
namespace {

constexpr uint32_t kStale = 70;  // a stale handle, in the numbers of the storage interface

struct Reason {
    std::string text;
    uint32_t status = 0;  // the library's
};

Reason library;       // what the library said since the last note
Reason failure;       // the first one
Reason remark;        // the last one
std::string hint;     // what may be behind it
std::string trouble;  // with tslnfstab

// What a line of prose does without.
std::string_view without_end(std::string_view text) {
    while (text.ends_with('\n') || text.ends_with('.'))
        text.remove_suffix(1);
    return text;
}

void keep(Reason reason) {
    if (failure.text.empty()) failure = std::move(reason);
}

Reason system_reason(std::string_view what, int error) {
    std::string text(without_end(what));
    if (error != 0) text = text + ": " + std::strerror(error);
    return {text};
}

bool is_about_mounting(const Reason &reason) {
    return reason.text.find(": MNT") != std::string::npos;
}

// Only a server is asked as somebody. The file that describes it is the caller's own affair.
bool is_about_server(const Reason &reason) {
    return reason.text.find("server ") != std::string::npos;
}

// Nothing to do with who asks, and the reason says it all.
bool is_about_security(const Reason &reason) {
    return reason.text.find(" with security ") != std::string::npos;
}

// What to try.
std::string advice(const Reason &reason) {
    switch (reason.status) {
        case ECONNREFUSED:
        case ECONNRESET:
        case EHOSTUNREACH:
        case ENETUNREACH:
        case ETIMEDOUT:
            return "is the server up, and is its address in tslnfstab right?";
        case ENOENT:
            return is_about_mounting(reason) ? "does the server export that? tslwnfs showmount -e SERVER lists it" : "";
        case EACCES:
        case EPERM:
            if (is_about_security(reason) || !is_about_server(reason)) return {};
            return is_about_mounting(reason) ? "does the server admit this host? tslwnfs showmount -e SERVER tells"
                                             : "the user and group that count are the caller's, unless tslnfstab "
                                               "names others for the server";
        case EDQUOT:
        case ENOSPC:
            return "tslwnfs fsstat DIRECTORY tells what is free";
        case kStale:
            return "it was removed or replaced on the server meanwhile; try again";
        default:
            return {};
    }
}

std::string with_advice(const Reason &reason) {
    const std::string more = hint.empty() ? advice(reason) : hint;
    return more.empty() ? reason.text : reason.text + "; " + more;
}

void forget() {
    library = failure = remark = {};
    hint.clear();
}

}  // namespace

void note_library_reason(uint32_t status, std::string_view why) {
    library = {std::string(why), status};
}

void note_failure(std::string_view what) {
    keep({std::string(without_end(what))});
}

void note_system_failure(std::string_view what, int error) {
    keep(system_reason(what, error));
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
