// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/file_run.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "platform/path_buffer.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/frontend/copy_tally.h"
#include "tslwnfs/frontend/doubts.h"
#include "tslwnfs/frontend/file_operands.h"
#include "tslwnfs/frontend/operand_text.h"
#include "tslwnfs/frontend/pace.h"
#include "tslwnfs/frontend/results_in_order.h"
#include "tslwnfs/frontend/verdict.h"
#include "tslwnfs/frontend/worker.h"
#include "tslwnfs/frontend/worker_pool.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/end_process.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/wildcard.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace {

// Of the command at hand: how often commands have called the executor again, and what a recursive copy has come to.
unsigned calls_again = 0;
CopyTally tally;

bool is_recursive_copy() {
    return commandtype == kCopy && has_option(kFileRecursive);
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
// is through and this process has left its servers, too; and what tells whether a directory is.
std::unique_ptr<WorkerPool> pool;
Pace pace;
unsigned runs_under_way = 0;

class RunUnderWay {
  public:
    RunUnderWay() {
        if (++runs_under_way == 1) await_workers();
    }
    ~RunUnderWay() {
        if (--runs_under_way > 0) return;
        if (pool != nullptr) pool->dismiss();
        pace = {};
    }
    RunUnderWay(const RunUnderWay &) = delete;
    RunUnderWay &operator=(const RunUnderWay &) = delete;
};

bool may_run_together() {
    return !is_worker() && !has_option(kFileInteractive) &&
           (commandtype == kCopy || commandtype == kMove || commandtype == kDelete);
}

// A worker's result as the file's own.
uint32_t take_over(const std::string &source, WorkerPool::Result result) {
    deliver(result.outcome.written);
    for (const std::string &line : result.outcome.said)
        terminal::say(line);
    terminal::add_notes(std::move(result.outcome.notes));
    if (!result.death.empty())
        trace_failure(kExecutor, "%s: the process that worked on it died: %s", source.c_str(), result.death.c_str());
    if (result.outcome.after == After::ends) {
        pool->drain();  // what others have begun they bring to an end
        end_process();
    }
    return result.outcome.status;
}

// One run of a file command over one file, or over the files that a wildcard names.
class FileRun {
  public:
    // What it is given must outlive it, and the operands must be prepared.
    FileRun(const Command &command, const FileOperands &operands) : command_(command), operands_(operands) {}

    uint32_t run() {
        if (operands_.is_typed()) tally.begin(operands_.origin());
        if (has_wildcard(operands_.first())) {
            run_on_matches();
        } else {
            run_on(operands_.first(), operands_.source().name, operands_.source().name, operands_.is_typed());
        }
        if (files_ == 0 && operands_.is_typed()) {
            terminal::note_remark("no name matches " + operands_.first());
            hint_at_unusable_operand(operands_.first());
        }
        if (files_ == 0 && listed_ && !operands_.is_typed()) {
            kept_ = nothing_inside();  // a directory that is walked may well be empty
        } else if (files_ == 0 || kept_ == kUnusable) {
            kept_ = unusable();
        }
        if (operands_.is_typed()) tally.tell();
        return names_left_out_ && !operands_.is_typed() ? kNamesLeftOut : kept_;
    }

  private:
    // Every name of the source's directory that the pattern matches, case left aside, in the order of the listing. The
    // names go on in lower case, unless they are to keep it.
    void run_on_matches() {
        NameList matches;
        listed_ = !operands_.source().directory.empty() && list_matches(matches);
        if (!listed_) return;
        for (std::size_t done = 0; done < matches.size(); ++done) {
            if (wants_workers(matches, done)) return run_together(matches, done);
            expect_next(matches, done);
            run_alone(std::string(matches[done]));
        }
    }

    // The server works on what comes next while one file's turn is: on so much of it that a long line is kept full.
    void expect_next(const NameList &matches, std::size_t done) {
        constexpr std::size_t kAhead = 64;
        if (matches.size() < 2) return;
        if (!coming_) coming_ = coming();
        if (*coming_ == Coming::nothing) return;
        const Untraced untraced;
        const std::size_t end = std::min(matches.size(), done + kAhead);
        for (expected_ = std::max(expected_, done); expected_ < end; ++expected_)
            expect(std::string(matches[expected_]));
    }

    // What may be begun of a file ahead of its turn. Between servers the server may copy by itself. Who is asked may
    // decline, and who wants one file after the other can still stop. And who moves files asks the server anew for
    // each, before it is removed.
    enum class Coming : uint8_t { nothing, content, deletion };
    Coming coming() const {
        const bool asks = commandtype != kCat && has_option(kFileInteractive);
        if (asks || !operands_.comes_from_server()) return Coming::nothing;
        if (commandtype == kDelete) return jobs_at_once().number == 1 ? Coming::nothing : Coming::deletion;
        const bool reads = commandtype == kCopy || commandtype == kCat;
        return reads && !operands_.goes_to_server() ? Coming::content : Coming::nothing;
    }

    // One that is refused at its turn is none.
    void expect(const std::string &listed) {
        const std::string source = operands_.source_of(listed);
        if (!is_entry_name(as_built(listed)) || source.size() >= PathBuffer::kSize) return;
        if (*coming_ == Coming::content)
            expect_content(source.c_str());
        else if (expect_deletion(source.c_str()))
            begun_ = expected_ + 1;
    }

    void run_alone(const std::string &listed) {
        pace.begin();
        hint_at_capitals(listed);
        run_on(operands_.source_of(listed), as_built(listed), listed, false);
        pace.end();
    }

    static void hint_at_capitals(const std::string &listed) {
        if (as_built(listed) != listed) terminal::note_hint("its name holds capitals; TSLWNFS_STRICT=names keeps them");
    }

    // Whether the rest of the matches goes to workers. Where the server is near, or the line full, processes that wait
    // for it take more time than they save; nobody is asked for more until that shows. Few files are not worth
    // processes that are not there yet.
    bool wants_workers(const NameList &matches, std::size_t done) {
        constexpr std::size_t kWorthProcesses = 16;
        const std::size_t least = pool != nullptr ? 2 : kWorthProcesses;
        if (matches.size() < least || matches.size() - done < 2 || !may_run_together()) return false;
        if (done < begun_) return false;
        const Jobs jobs = jobs_at_once();
        if (jobs.number == 1 || !(jobs.asked_for || pool != nullptr || pace.is_waiting())) return false;
        if (!apart_) apart_ = operands_.has_server() && operands_.are_apart(matches);
        if (!*apart_) return false;
        if (pool == nullptr) pool = std::make_unique<WorkerPool>(command_, jobs.number);
        return pool->has_room();
    }

    // The workers need not ask again for what the listing told.
    Job job_with_knowledge(const std::string &listed) const {
        const Untraced untraced;
        const terminal::AskedBesides besides;
        Job job = operands_.job_of(listed);
        for (const std::string *path : {&job.source, &job.destination})
            if (!path->empty()) job.known.push_back(known_of(path->c_str()));
        return job;
    }

    // As run_on() for one after the other, but that the command runs in the workers: each match's result is waited for
    // in its turn, while those behind it are under way.
    void run_together(const NameList &matches, std::size_t first) {
        const auto job = [&](std::size_t i) { return job_with_knowledge(std::string(matches[i])); };
        ResultsInOrder results(*pool, first, matches.size(), job, operands_.first());
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
        const Job job = operands_.job_of(listed);
        hint_at_capitals(listed);
        announce(job.source, command_.names_destination ? job.destination : operands_.second());
        const Counted counted(operands_.source().directory + "/" + listed);
        auto given = results.wait();
        const Operand to =
            command_.names_destination ? Operand::ready(job.destination.c_str()) : operands_.second().c_str();
        const uint32_t result = given.outcome.after == After::undone
                                    ? run_command(command_, Operand::ready(job.source.c_str()), to)
                                    : take_over(job.source, std::move(given));
        counted.end(result);
        keep(give_verdict(result));
    }

    // Of a large directory often few names match: the others are not kept.
    bool list_matches(NameList &matches) {
        const char *const directory = operands_.source().directory.c_str();
        const auto is_match = [pattern = lowered(operands_.source().name)](std::string_view name) {
            return strwildcmp(pattern.c_str(), lowered(name).c_str()) != 0;
        };
        const uint32_t listed = list_content(operands_.is_typed() ? Operand(directory) : Operand::ready(directory),
                                             matches, Afterwards::anything, is_match);
        names_left_out_ = listed == kNamesLeftOut;
        return listed == 0 || names_left_out_;
    }

    // name is the source's last component, listed the one that its directory has; a source that was not typed was
    // joined with the former.
    void run_on(std::string source, const std::string &name, const std::string &listed, bool typed) {
        std::string destination = command_.names_destination ? operands_.destination_for(name) : operands_.second();
        lower_drive_path(source);
        lower_drive_path(destination);
        announce(source, destination);
        const bool usable = typed || (is_entry(source, name) && leads_to_entry(destination));
        const MeantAsDirectory directory(operands_.means_directory(), destination);
        const bool refused = !usable || !fits(source) || !fits(destination) || is_taken(name, destination) ||
                             directory.is_refused(operands_.source().directory + "/" + name, is_recursive_copy());
        const Operand from = typed ? Operand(source.c_str()) : Operand::ready(source.c_str());
        const Operand to = command_.names_destination ? Operand::ready(destination.c_str()) : destination.c_str();
        const Counted counted(operands_.source().directory + "/" + listed);
        const uint32_t result = refused ? 1 : run_command(command_, from, to);
        counted.end(result);
        if (result != 0 && typed) hint_at_lowered_source(operands_.source().directory, name);
        keep(give_verdict(result));
        if (result == 0) directory.warn_of_file();
    }

    static bool is_entry(const std::string &path, const std::string &name) {
        if (is_entry_name(name)) return true;
        trace_failure(kExecutor, "%s is no entry of a directory", path.c_str());
        return false;
    }

    // A pattern may leave nothing of a listed name but dots.
    bool leads_to_entry(const std::string &destination) const {
        return !command_.names_destination || is_entry(destination, destination.substr(destination.rfind('/') + 1));
    }

    static bool fits(const std::string &path) {
        if (path.size() < PathBuffer::kSize) return true;
        trace_message(kExecutor, Message::path_unresolvable, path.c_str());
        return false;
    }

    // Moving several files to one name would leave only the last of them. Of a copy the sources stay, and only names
    // that come out the same without the user's doing count, unless it is to be strict: those that differ by nothing
    // but case.
    bool is_taken(const std::string &name, const std::string &destination) {
        if (!command_.names_destination) return false;
        const std::string &key = commandtype == kMove ? destination : name;
        if (taken_.insert(key).second && !(commandtype == kCopy && replaces_copy_.found(destination))) return false;
        trace_failure(kExecutor, "%s already took another file", destination.c_str());
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
    const FileOperands &operands_;
    std::optional<bool> apart_;  // the matches, and with a server among their directories
    std::optional<Coming> coming_;
    std::size_t expected_ = 0;     // of the matches
    std::size_t begun_ = 0;        // behind the last of them whose deletion is begun: nobody else can do it
    std::set<std::string> taken_;  // by the files of this run
    CopiesToOneName replaces_copy_;
    bool listed_ = false;
    std::size_t files_ = 0;
    uint32_t kept_ = 0;
    bool names_left_out_ = false;  // of the source's directory
};

}  // namespace

void await_workers() {
    pool.reset();
}

uint32_t run_on_files(const Command &command, const Operand &first, const Operand &second) {
    ++calls_again;
    const RunUnderWay under_way;
    FileOperands operands(command, first, second);
    if (!operands.prepare(first, second)) return unusable();
    return FileRun(command, operands).run();
}
