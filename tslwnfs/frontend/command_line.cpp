// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/command_line.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/guidance.h"
#include "tslwnfs/options/option_words.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/streams.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr std::size_t kWordLimit = 260;  // bytes; every word is shorter
constexpr int32_t kHighestLevel = 4;

// The words that cannot be the name of a trace or log file. A fixed list, much shorter than the commands' words: a file
// may be called "save" or "dd2", and always could.
constexpr std::string_view cmdname[] = {
    "showmount", "copy",   "cp", "find", "move",  "mv",     "del",     "delete",
    "rm",        "cat",    "dd", "stat", "mkdir", "rmdir",  "getattr", "setattr",
    "fsstat",    "fsinfo", "ls", "dir",  "mount", "umount", "-level",  "-log",
};

bool is_reserved(std::string_view word) {
    return std::find(std::begin(cmdname), std::end(cmdname), word) != std::end(cmdname);
}

bool has_long_word(std::span<char *> words) {
    return std::any_of(words.begin(), words.end(), [](const char *word) { return std::strlen(word) >= kWordLimit; });
}

ParseOutcome take_trace(Words &words) {
    if (!words.take_if("-trace")) return ParseOutcome::accepted;
    if (words.done()) return ParseOutcome::usage;
    if (is_reserved(words.current())) {
        if (open_trace_on_standard_error()) return ParseOutcome::accepted;
        lwrf("StreamOpen failed for STDERR. Err info:%.256s\n", std::strerror(errno));
        return ParseOutcome::refused;
    }
    if (words.left() < 2) return ParseOutcome::usage;
    const char *name = words.take();
    if (open_trace_file(name)) return ParseOutcome::accepted;
    lwrf("unable to open:%s. Err info:%.256s\n", name, std::strerror(errno));
    return ParseOutcome::refused;
}

ParseOutcome take_levels(Words &words) {
    struct Component {
        const char *name;
        uint32_t *level;
    };
    constexpr Component kComponents[] = {
        {"kgtdm", &kgtdm_trace}, {"nfcore", &nfcore_trace}, {"snfcore", &snfcore_trace}, {"tslwnfs", &tslwnfs_trace}};
    if (!words.take_if("-level")) return ParseOutcome::accepted;
    if (words.left() <= std::size(kComponents)) return ParseOutcome::usage;
    for (const auto &component : kComponents) {
        const int32_t level = decimal("-level", words.take());
        if (level < 0 || level > kHighestLevel) {
            trace_message("get_options", Message::trace_level_out_of_range, component.name);
            return ParseOutcome::usage;
        }
        *component.level = static_cast<uint32_t>(level);
    }
    nfcore_mask = 0;
    return ParseOutcome::accepted;
}

ParseOutcome take_log(Words &words) {
    if (!words.take_if("-log")) return ParseOutcome::accepted;
    if (words.done() || is_reserved(words.current())) return ParseOutcome::usage;
    const char *name = words.take();
    if (open_log_file(name)) return ParseOutcome::accepted;
    trace_message("get_options", Message::log_unopenable, name, errno);
    return ParseOutcome::refused;
}

ParseOutcome take_command(Words &words) {
    if (words.is("--help") || words.is("-h")) {
        ask_for_synopsis("help");
        return ParseOutcome::usage;
    }
    const char *word = words.take();
    const Command *command = word != nullptr ? find_command(word) : nullptr;
    if (command == nullptr) {
        if (word != nullptr) note_unknown_command(word);
        return ParseOutcome::usage;
    }
    if (words.is("--help") && words.left() == 1) {
        ask_for_synopsis(word);
        return ParseOutcome::usage;
    }
    if (command->grammar == parse_help) ask_for_synopsis(words.done() ? word : words.current());
    command_word = word;
    commandtype = command->code;
    const ParseOutcome outcome = command->grammar(words);
    if (!words.done()) {
        object_to(words.current(), "is one word too many",
                  words.left() == 1 ? "is one word too many and was skipped" : "and the words behind it were skipped");
    }
    if (outcome == ParseOutcome::dd_help || (outcome == ParseOutcome::usage && !terminal::has_failure()))
        ask_for_synopsis(word);
    if (outcome != ParseOutcome::accepted) return outcome;
    if (has_objection()) return ParseOutcome::usage;
    warn_of_objections(word);
    return outcome;
}

}  // namespace

ParseOutcome get_options(std::span<char *> all) {
    ask_for_synopsis({});  // nobody has yet
    if (has_long_word(all)) return ParseOutcome::usage;
    Words words(all);
    pass_flag = words.trailing_yes() ? 1 : 0;
    if (all.size() < 2 || all[1][0] == '\0') {
        ask_for_synopsis("help");
        return ParseOutcome::usage;
    }
    // Recognised in this order only.
    for (const auto take : {take_trace, take_levels, take_log, take_command}) {
        const ParseOutcome outcome = take(words);
        if (outcome != ParseOutcome::accepted) return outcome;
    }
    return ParseOutcome::accepted;
}
