// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/file_operands.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <vector>

#include "include/tdm.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/frontend/doubts.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/storage/wildcard.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

// Nothing is left of the root when its slash is cut off.
void note_root(const Operand &given) {
    const std::string shown = given.shown();
    if (shown.empty()) return;
    terminal::note_failure(shown + (commandtype == kDelete ? " is never deleted" : " is no entry of a directory"));
}

// Resolves an operand's trimmed text. What is traced is the operand as it was given.
bool resolve(const std::string &text, const Operand &given, PathBuffer &resolved) {
    if (text.empty()) note_root(given);
    if (resolve_path(given.is_typed() ? Operand(text.c_str()) : Operand::ready(text.c_str()), resolved)) return true;
    if (given.is_typed()) hint_at_unusable_operand(text);
    trace_message(kExecutor, Message::path_unresolvable, given.shown());
    return false;
}

// Nobody means to delete the root, nor the directory that a path ends in by its dots.
bool is_slip(const std::string &text, std::string_view resolved) {
    const SplitPath last(text);
    if (resolved != "/" && last.name != "." && last.name != "..") return false;
    trace_failure(kExecutor, "%s is never deleted", text.c_str());
    return true;
}

bool is_on_server(const std::string &directory) {
    const Untraced untraced;
    const terminal::AskedBesides besides;
    TdmAttributes attributes = {};
    uint32_t location = 0;
    return tdm_getattr(ctx, directory.c_str(), &attributes, &location) == 0 && location == TDM_LOCATION_REMOTE;
}

}  // namespace

FileOperands::FileOperands(const Command &command, const Operand &first, const Operand &second)
    : command_(command), typed_(first.is_typed()), first_(text_of(first)), second_(text_of(second)) {}

bool FileOperands::prepare(const Operand &first, const Operand &second) {
    PathBuffer resolved;
    if (!resolve(first_, first, resolved)) return false;
    if (commandtype == kDelete && is_slip(first_, resolved.view())) return false;
    source_.emplace(resolved.view());
    origin_ = has_wildcard(first_) ? source_->directory : resolved.view();
    if (!command_.names_destination) return true;
    // The destination is asked about first; the way to the source's server is made meanwhile.
    expect_use(origin_.c_str());
    return prepare_destination(second);
}

bool FileOperands::prepare_destination(const Operand &second) {
    PathBuffer resolved;
    if (!resolve(second_, second, resolved)) return false;
    destination_.emplace(resolved.view());
    into_directory_ = is_directory_destination(resolved);
    if (into_directory_ && commandtype == kMove) {
        destination_->directory = resolved.view();
        destination_->name = "*";
    } else if (second.is_typed() && !has_wildcard(destination_->name)) {
        const std::string name = as_built(destination_->name);
        warn_of_lowered_destination(std::string(resolved.view()), destination_->directory + "/" + name);
    }
    means_directory_ = second.is_typed() && ends_in_separator(second.shown());
    return true;
}

bool FileOperands::comes_from_server() const {
    return is_on_server(source_->directory);
}

bool FileOperands::goes_to_server() const {
    if (!command_.names_destination) return false;
    const std::string &directory = destination_->directory;
    return is_on_server(keeps_names() ? directory + "/" + destination_->name : directory);
}

// A copy goes into a directory that was named, under its source's name.
bool FileOperands::keeps_names() const {
    return commandtype == kCopy && into_directory_;
}

std::string FileOperands::source_of(const std::string &listed) const {
    return source_->directory + "/" + as_built(listed);
}

std::string FileOperands::destination_for(const std::string &source_name) const {
    char name[PathBuffer::kSize] = {};
    strwildmatch(as_built(destination_->name).c_str(), as_built(source_name).c_str(), name, sizeof name);
    return destination_->directory + "/" + name;
}

Job FileOperands::job_of(const std::string &listed) const {
    Job job;
    job.source = source_of(listed);
    lower_drive_path(job.source);
    if (command_.names_destination) job.destination = destination_for(as_built(listed));
    lower_drive_path(job.destination);
    return job;
}

bool FileOperands::are_apart(const NameList &matches) const {
    if (means_directory_ && !into_directory_) return false;
    std::vector<std::size_t> marks;
    const auto mark = [&marks](const std::string &name) { marks.push_back(std::hash<std::string>{}(name)); };
    for (const auto &listed : matches) {
        const Job job = job_of(listed);
        const std::string name = lowered(listed);
        if (!is_entry_name(name) || job.source.size() >= PathBuffer::kSize) return false;
        mark(name);
        if (!command_.names_destination || keeps_names()) continue;
        const std::string last = lowered(job.destination.substr(job.destination.rfind('/') + 1));
        if (!is_entry_name(last) || job.destination.size() >= PathBuffer::kSize) return false;
        if (last != name) mark(last);
    }
    std::sort(marks.begin(), marks.end());
    return std::adjacent_find(marks.begin(), marks.end()) == marks.end();
}
