// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/executor.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "include/tdm.h"
#include "platform/path_buffer.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/copy_tally.h"
#include "tslwnfs/frontend/doubts.h"
#include "tslwnfs/frontend/pace.h"
#include "tslwnfs/frontend/results_in_order.h"
#include "tslwnfs/frontend/worker.h"
#include "tslwnfs/frontend/worker_pool.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/end_process.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/storage/wildcard.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr char kFunction[] = "exec_command";
constexpr std::size_t kOperandLimit = 260;  // characters; every operand is shorter
constexpr uint32_t kUnusable = 4;

// Of the command at hand: how often commands have called the executor again, and what a recursive copy has come to.
unsigned calls_again = 0;
CopyTally tally;

uint32_t unusable() {
    print_message(Message::operands_unusable);
    terminal::tell_reason();
    return kUnusable;
}

uint32_t give_verdict(uint32_t result) {
    if (result == 0) {
        print_message(Message::command_succeeded);
        terminal::tell_warning();
    } else {
        print_message(Message::command_failed, result);
        terminal::tell_reason();
    }
    return result;
}

// What a directory without content gives; its reading and the look for it have left remarks of no consequence.
uint32_t nothing_inside() {
    print_message(Message::operands_unusable);
    terminal::tell_warning();
    return kUnusable;
}

bool is_too_long(const Operand &operand) {
    return std::strlen(operand.shown()) >= kOperandLimit;
}

// The trace has no record of it. Of what was typed the front end has judged every word already.
uint32_t too_long(const Operand &operand) {
    terminal::note_failure(std::string(operand.shown()) + ": paths of " + std::to_string(kOperandLimit) +
                           " characters and more are not taken");
    return unusable();
}

bool ends_in_separator(std::string_view text) {
    return text.ends_with('/') || text.ends_with('\\');
}

// What was typed, without one trailing separator; a separator behind a ":" is a root and stays.
std::string text_of(const Operand &operand) {
    std::string text = operand.shown();
    const bool separated = ends_in_separator(text);
    const bool is_root = text.size() > 1 && text[text.size() - 2] == ':';
    if (operand.is_typed() && separated && !is_root) text.pop_back();
    return text;
}

// What names that are built are built from.
std::string as_built(const std::string &text) {
    return is_strict(Strict::names) ? text : lowered(text);
}

bool has_wildcard(const std::string &text) {
    return text.find_first_of("*?") != std::string::npos;
}

// A path written with a drive letter that holds a second colon is lower-cased; "nfs:" is such a colon's usual reason
// and protects the path.
void lower_drive_path(std::string &path) {
    if (path.size() < 2 || std::isalpha(static_cast<unsigned char>(path[0])) == 0 || path[1] != ':') return;
    if (is_strict(Strict::names)) return;
    if (path.find(':', 2) == std::string::npos || lowered(path).find("nfs:") != std::string::npos) return;
    tolower_string(path.data());
}

// A resolved path in two.
struct SplitPath {
    std::string directory;
    std::string name;

    explicit SplitPath(std::string_view path) {
        const std::size_t separator = last_separator(path);
        if (separator == std::string_view::npos) {
            name = path;
        } else {
            directory = path.substr(0, separator);
            name = path.substr(separator + 1);
        }
    }
};

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
    trace_message(kFunction, Message::path_unresolvable, given.shown());
    return false;
}

bool is_recursive_copy() {
    return commandtype == kCopy && has_option(kFileRecursive);
}

// Nobody means to delete the root, nor the directory that a path ends in by its dots.
bool is_slip(const std::string &text, std::string_view resolved) {
    const SplitPath last(text);
    if (resolved != "/" && last.name != "." && last.name != "..") return false;
    trace_failure(kFunction, "%s is never deleted", text.c_str());
    return true;
}

// Counts one entry of a recursive copy. A directory counts by what it holds, unless it failed for itself.
class Counted {
  public:
    explicit Counted(std::string path) : path_(std::move(path)) {}

    void end(uint32_t result) const {
        const bool is_walked = calls_again != calls_before_;
        const bool failed_itself = result != 0 && tally.missing() == missing_before_;
        if (is_recursive_copy() && (!is_walked || failed_itself)) tally.count(path_, result == 0);
    }

  private:
    std::string path_;
    unsigned calls_before_ = calls_again;
    std::size_t missing_before_ = tally.missing();
};

// The processes that several files are given to, from the first directory that is worth it until the command as a whole
// is through, and what tells whether one is.
std::unique_ptr<WorkerPool> pool;
Pace pace;
unsigned runs_under_way = 0;
bool works_for_another = false;

class RunUnderWay {
  public:
    RunUnderWay() { ++runs_under_way; }
    ~RunUnderWay() {
        if (--runs_under_way > 0) return;
        pool.reset();
        pace = {};
    }
    RunUnderWay(const RunUnderWay &) = delete;
    RunUnderWay &operator=(const RunUnderWay &) = delete;
};

bool may_run_together() {
    return !works_for_another && !has_option(kFileInteractive) &&
           (commandtype == kCopy || commandtype == kMove || commandtype == kDelete);
}

bool is_on_server(const std::string &directory) {
    const Untraced untraced;
    const terminal::AskedBesides besides;
    TdmAttributes attributes = {};
    uint32_t location = 0;
    return tdm_getattr(ctx, directory.c_str(), &attributes, &location) == 0 && location == TDM_LOCATION_REMOTE;
}

// A worker's result as the file's own.
uint32_t take_over(const std::string &source, WorkerPool::Result result) {
    deliver(result.outcome.written);
    for (const std::string &line : result.outcome.said)
        terminal::say(line);
    terminal::add_notes(std::move(result.outcome.notes));
    if (!result.death.empty())
        trace_failure(kFunction, "%s: the process that worked on it died: %s", source.c_str(), result.death.c_str());
    if (result.outcome.after == After::ends) {
        pool->drain();  // what others have begun they bring to an end
        end_process();
    }
    return result.outcome.status;
}

// One run of a file command over one file, or over the files that a wildcard names.
class FileRun {
  public:
    FileRun(const Command &command, const Operand &first, const Operand &second)
        : command_(command), typed_(first.is_typed()), first_(text_of(first)), second_(text_of(second)) {}

    // Resolves both operands as given. False when one cannot be used.
    bool prepare(const Operand &first, const Operand &second) {
        PathBuffer resolved;
        if (!resolve(first_, first, resolved)) return false;
        if (commandtype == kDelete && is_slip(first_, resolved.view())) return false;
        source_.emplace(resolved.view());
        if (typed_) tally.begin(has_wildcard(first_) ? source_->directory : resolved.view());
        if (!command_.names_destination) return true;
        // The destination is asked about first; the way to the source's server is made meanwhile.
        expect_use(has_wildcard(first_) ? source_->directory.c_str() : resolved.c_str());
        return prepare_destination(second);
    }

    uint32_t run() {
        if (has_wildcard(first_)) {
            run_on_matches();
        } else {
            run_on(first_, source_->name, source_->name, typed_);
        }
        if (files_ == 0 && typed_) {
            terminal::note_remark("no name matches " + first_);
            hint_at_unusable_operand(first_);
        }
        if (files_ == 0 && listed_ && !typed_) {
            kept_ = nothing_inside();  // a directory that is walked may well be empty
        } else if (files_ == 0 || kept_ == kUnusable) {
            kept_ = unusable();
        }
        if (typed_) tally.tell();
        return names_left_out_ && !typed_ ? kNamesLeftOut : kept_;
    }

  private:
    bool prepare_destination(const Operand &second) {
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

    // Every name of the source's directory that the pattern matches, case left aside, in the order of the listing. The
    // names go on in lower case, unless they are to keep it.
    void run_on_matches() {
        NameList names;
        listed_ = !source_->directory.empty() && list_source(names);
        if (!listed_) return;
        const std::string pattern = lowered(source_->name);
        NameList matches;
        for (const auto &name : names)
            if (strwildcmp(pattern.c_str(), lowered(name).c_str()) != 0) matches.add(name);
        names.clear();
        for (std::size_t done = 0; done < matches.size(); ++done) {
            if (wants_workers(matches, done)) return run_together(matches, done);
            run_alone(std::string(matches[done]));
        }
    }

    void run_alone(const std::string &listed) {
        pace.begin();
        hint_at_capitals(listed);
        run_on(source_of(listed), as_built(listed), listed, false);
        pace.end();
    }

    static void hint_at_capitals(const std::string &listed) {
        if (as_built(listed) != listed) terminal::note_hint("its name holds capitals; TSLWNFS_STRICT=names keeps them");
    }

    std::string source_of(const std::string &listed) const { return source_->directory + "/" + as_built(listed); }

    // Whether the rest of the matches goes to workers. Where the server is near, or the line full, processes that wait
    // for it take more time than they save; nobody is asked for more until that shows. Few files are not worth
    // processes that are not there yet.
    bool wants_workers(const NameList &matches, std::size_t done) {
        constexpr std::size_t kWorthProcesses = 16;
        const std::size_t least = pool != nullptr ? 2 : kWorthProcesses;
        if (matches.size() < least || matches.size() - done < 2 || !may_run_together()) return false;
        const Jobs jobs = jobs_at_once();
        if (jobs.number == 1 || !(jobs.asked_for || pool != nullptr || pace.is_waiting())) return false;
        if (!apart_) apart_ = has_server() && are_apart(matches);
        if (!*apart_) return false;
        if (pool == nullptr) pool = std::make_unique<WorkerPool>(command_, jobs.number);
        return pool->has_room();
    }

    bool has_server() const {
        if (is_on_server(source_->directory)) return true;
        if (!command_.names_destination) return false;
        const std::string &directory = destination_->directory;
        return is_on_server(keeps_names() ? directory + "/" + destination_->name : directory);
    }

    // No two have the same destination and none the name of another's, case left aside, whatever the directories are;
    // and none is refused before it runs. Names count by their hashes: two that fall together only cost time.
    bool are_apart(const NameList &matches) const {
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

    // A copy goes into a directory that was named, under its source's name.
    bool keeps_names() const { return commandtype == kCopy && into_directory_; }

    Job job_of(const std::string &listed) const {
        Job job;
        job.source = source_of(listed);
        lower_drive_path(job.source);
        if (command_.names_destination) job.destination = destination_for(as_built(listed));
        lower_drive_path(job.destination);
        return job;
    }

    // The workers need not ask again for what the listing told.
    Job job_with_knowledge(const std::string &listed) const {
        const Untraced untraced;
        const terminal::AskedBesides besides;
        Job job = job_of(listed);
        for (const std::string *path : {&job.source, &job.destination})
            if (!path->empty()) job.known.push_back(known_of(path->c_str()));
        return job;
    }

    // As run_on() for one after the other, but that the command runs in the workers: each match's result is waited for
    // in its turn, while those behind it are under way.
    void run_together(const NameList &matches, std::size_t first) {
        const auto job = [&](std::size_t i) { return job_with_knowledge(std::string(matches[i])); };
        ResultsInOrder results(*pool, first, matches.size(), job, first_);
        for (std::size_t i = first; i < matches.size(); ++i) {
            const std::string listed(matches[i]);
            if (results.next()) {
                give_out(listed, results);
            } else {
                run_alone(listed);
            }
        }
    }

    void give_out(const std::string &listed, ResultsInOrder &results) {
        const Job job = job_of(listed);
        hint_at_capitals(listed);
        announce(job.source, command_.names_destination ? job.destination : second_);
        const Counted counted(source_->directory + "/" + listed);
        auto given = results.wait();
        const Operand to = command_.names_destination ? Operand::ready(job.destination.c_str()) : second_.c_str();
        const uint32_t result = given.outcome.after == After::undone
                                    ? run_command(command_, Operand::ready(job.source.c_str()), to)
                                    : take_over(job.source, std::move(given));
        counted.end(result);
        keep(give_verdict(result));
    }

    bool list_source(NameList &names) {
        const char *const directory = source_->directory.c_str();
        const uint32_t listed = list_content(typed_ ? Operand(directory) : Operand::ready(directory), names);
        names_left_out_ = listed == kNamesLeftOut;
        return listed == 0 || names_left_out_;
    }

    // name is the source's last component, listed the one that its directory has; a source that was not typed was
    // joined with the former.
    void run_on(std::string source, const std::string &name, const std::string &listed, bool typed) {
        std::string destination = command_.names_destination ? destination_for(name) : second_;
        lower_drive_path(source);
        lower_drive_path(destination);
        announce(source, destination);
        const bool usable = typed || (is_entry(source, name) && leads_to_entry(destination));
        const MeantAsDirectory directory(means_directory_, destination);
        const bool refused = !usable || !fits(source) || !fits(destination) || is_taken(name, destination) ||
                             directory.is_refused(source_->directory + "/" + name, is_recursive_copy());
        const Operand from = typed ? Operand(source.c_str()) : Operand::ready(source.c_str());
        const Operand to = command_.names_destination ? Operand::ready(destination.c_str()) : destination.c_str();
        const Counted counted(source_->directory + "/" + listed);
        const uint32_t result = refused ? 1 : run_command(command_, from, to);
        counted.end(result);
        if (result != 0 && typed) hint_at_lowered_source(source_->directory, name);
        keep(give_verdict(result));
        if (result == 0) directory.warn_of_file();
    }

    static bool is_entry(const std::string &path, const std::string &name) {
        if (is_entry_name(name)) return true;
        trace_failure(kFunction, "%s is no entry of a directory", path.c_str());
        return false;
    }

    // A pattern may leave nothing of a listed name but dots.
    bool leads_to_entry(const std::string &destination) const {
        return !command_.names_destination || is_entry(destination, destination.substr(destination.rfind('/') + 1));
    }

    std::string destination_for(const std::string &source_name) const {
        char name[PathBuffer::kSize] = {};
        strwildmatch(as_built(destination_->name).c_str(), as_built(source_name).c_str(), name, sizeof name);
        return destination_->directory + "/" + name;
    }

    static bool fits(const std::string &path) {
        if (path.size() < PathBuffer::kSize) return true;
        trace_message(kFunction, Message::path_unresolvable, path.c_str());
        return false;
    }

    // Moving several files to one name would leave only the last of them. Of a copy the sources stay, and only names
    // that come out the same without the user's doing count, unless it is to be strict: those that differ by nothing
    // but case.
    bool is_taken(const std::string &name, const std::string &destination) {
        if (!command_.names_destination) return false;
        const std::string &key = commandtype == kMove ? destination : name;
        if (taken_.insert(key).second && !(commandtype == kCopy && replaces_copy_.found(destination))) return false;
        trace_failure(kFunction, "%s already took another file", destination.c_str());
        return true;
    }

    void announce(const std::string &source, const std::string &destination) {
        ++files_;
        if (command_.banner == nullptr) return;
        if (command_.banner_on_terminal) {
            lwrf("%s", command_.banner);
        } else {
            print(command_.banner, shown_name(source).c_str(), shown_name(destination).c_str());
        }
    }

    // The most recent failure counts, a later success notwithstanding.
    void keep(uint32_t result) {
        if (result != 0) kept_ = result;
    }

    const Command &command_;
    const bool typed_;
    std::string first_, second_;
    std::optional<SplitPath> source_, destination_;
    bool means_directory_ = false;  // the second operand
    bool into_directory_ = false;   // it is one
    std::optional<bool> apart_;     // the matches, and with a server among their directories
    std::set<std::string> taken_;   // by the files of this run
    CopiesToOneName replaces_copy_;
    bool listed_ = false;
    std::size_t files_ = 0;
    uint32_t kept_ = 0;
    bool names_left_out_ = false;  // of the source's directory
};

}  // namespace

bool is_worker() {
    return works_for_another;
}

void become_worker() {
    works_for_another = true;
}

uint32_t exec_command(const Operand &first, const Operand &second) {
    if (is_too_long(first) || is_too_long(second)) return too_long(is_too_long(first) ? first : second);
    const Command *command = command_of(commandtype);
    if (command == nullptr) return 0;
    switch (command->execution) {
        case Execution::no_verdict:
            return command->run(first, second);
        case Execution::once:
            return give_verdict(command->run(first, second));
        case Execution::on_files:
            break;
    }
    ++calls_again;
    const RunUnderWay under_way;
    FileRun run(*command, first, second);
    return run.prepare(first, second) ? run.run() : unusable();
}
