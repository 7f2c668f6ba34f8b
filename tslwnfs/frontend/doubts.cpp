// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/doubts.h"

#include <optional>
#include <utility>

#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/identity.h"
#include "tslwnfs/storage/wildcard.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace {

// Whether somebody wants to know.
bool is_watched() {
    return terminal::is_open() || is_strict(Strict::options);
}

std::optional<FileIdentity> look_besides(const std::string &path) {
    const Untraced untraced;
    const terminal::AskedBesides besides;
    return look_at(path, LastLink::follow);
}

bool exists(const std::string &path) {
    return look_besides(path).has_value();
}

bool is_directory(const std::string &path) {
    const auto found = look_besides(path);
    return found && found->directory;
}

}  // namespace

void warn_of_lowered_destination(const std::string &typed, const std::string &built) {
    if (!terminal::is_open() || typed == built) return;
    const auto found = look_besides(typed);
    if (!found) return;
    terminal::say("warning: " + typed + ": the last name is put in lower case, so that it goes to " + built + "; " +
                  (found->directory ? "write " + typed + "/NAME, or set TSLWNFS_STRICT=names"
                                    : "TSLWNFS_STRICT=names keeps it as it is"));
}

void hint_at_lowered_source(const std::string &directory, const std::string &name) {
    const std::string lower = lowered(name);
    if (!terminal::is_open() || lower == name) return;
    if (exists(directory + "/" + name) || !exists(directory + "/" + lower)) return;
    terminal::note_hint(lower + " is there: names that the program builds are in lower case");
}

void hint_at_unusable_operand(const std::string &operand) {
    if (operand.find('?') != std::string::npos) {
        terminal::note_hint("? is no wildcard here, use *");
    } else if (operand.find("..") != std::string::npos) {
        terminal::note_hint("write it in full");
    }
}

bool CopiesToOneName::found(const std::string &destination) {
    if (!is_watched() || taken_.insert(destination).second || is_directory(destination)) return false;
    if (is_strict(Strict::options)) return true;
    if (!warned_) {
        terminal::say("warning: " + destination +
                      " already took another file of this copy, and is overwritten; write " + destination +
                      "/* for a directory");
    }
    warned_ = true;
    return false;
}

MeantAsDirectory::MeantAsDirectory(bool is_meant, std::string destination)
    : destination_(std::move(destination)), is_missing_(is_meant && is_watched() && !is_directory(destination_)) {}

bool MeantAsDirectory::is_refused(const std::string &source, bool is_recursive) const {
    if (!is_missing_ || !is_strict(Strict::options) || (is_recursive && is_directory(source))) return false;
    trace_failure("exec_command", "%s is no directory", destination_.c_str());
    return true;
}

void MeantAsDirectory::warn_of_file() const {
    if (!is_missing_ || is_directory(destination_)) return;
    terminal::say("warning: " + destination_ + " is no directory: a file of that name was made");
}
