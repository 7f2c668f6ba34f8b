// SPDX-License-Identifier: Apache-2.0
// find: walks a tree depth first, prints what passes every test and can run a shell command for it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/real_path.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/storage/wildcard.h"

namespace {

constexpr const char *kFindfile = "findfile";

enum FindResult : uint32_t { kMatched = 0, kFailed = 1, kNothing = 4 };

// Directories nested in each other, by links or by names. The default depth ends long before; what it does not bound
// are links from directory to directory, and a negative depth. So many fit a stack of 1 MiB.
constexpr std::size_t kNestingMaximum = 1024;

// Links that lead to links. A ring of them has no other end.
constexpr int kFollowMaximum = 40;

// Case never counts.
bool matches(const std::string &pattern, const std::string &text) {
    return strwildcmp(lowered(pattern).c_str(), lowered(text).c_str()) != 0;
}

// Sizes are compared as the 32-bit values that the options hold.
int32_t compared_size(const AttrResult &attributes) {
    const uint64_t size =
        attributes.is_local != 0 ? static_cast<uint64_t>(attributes.local->st_size) : attributes.remote->size;
    return static_cast<int32_t>(static_cast<uint32_t>(size));
}

bool is_within_bounds(int32_t size) {
    if (has_option(kFindSizeAtLeast) && size < find_size_gsize) return false;
    return !has_option(kFindSizeAtMost) || size <= find_size_lsize;
}

bool is_wanted_type(Kind kind) {
    if (!has_option(kFindType)) return true;
    if (kind == Kind::directory) return find_type_c == 'd';
    return kind == Kind::regular && find_type_c == 'f';
}

bool passes_tests(Kind kind, const AttrResult &attributes, const std::string &path) {
    const int32_t size = compared_size(attributes);
    if (!is_wanted_type(kind) || !is_within_bounds(size)) return false;
    if (has_option(kFindSize) && size != find_size_size) return false;
    return !has_option(kFindPath) || matches(find_path_pattern == nullptr ? "" : find_path_pattern, path);
}

// A path as one word of a shell command. Names of the usual characters stand as they are; any other name would be taken
// apart, or run, by the shell.
std::string shell_word(const std::string &path) {
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%=~^";
    if (path.find_first_not_of(kPlain) == std::string::npos) return path;
    std::string word = "'";
    for (const char character : path) {
        if (character == '\'') {
            word += "'\\''";
        } else {
            word += character;
        }
    }
    return word + "'";
}

void run_command(const std::string &path) {
    std::string command;
    for (int32_t word = 0; word < find_exec_cmdsize; ++word) {
        const std::string text = find_exec_cmdptr[word];
        command += (text == "{}" ? shell_word(path) : text) + " ";
    }
    if (command.empty()) return;
    if (command.size() >= PathBuffer::kSize) {
        trace_failure(kFindfile, "the command for %s is too long and was not run", path.c_str());
        return;
    }
    // What was printed so far comes before what the command prints.
    flush_output();
    [[maybe_unused]] const int ignored = std::system(command.c_str());  // NOLINT(cert-env33-c): the option's purpose
}

void report_match(const std::string &path) {
    // Matches are data for another program: they go to standard output, log or not.
    if (!has_option(kFindExec) || has_option(kFindPrint)) lwrf("%s \n", shown_name(path, stdout).c_str());
    if (has_option(kFindExec)) run_command(path);
}

// Lists a directory and gives its resolved path. Stands apart, as link_target() does, so that no path buffer lies on
// the stack while the walk goes deeper.
[[gnu::noinline]] FindResult list_directory(const Operand &path, NameList &names, std::string &resolved_path) {
    // A command may change what is found later.
    const uint32_t listed =
        list_content(path, names, has_option(kFindExec) ? Afterwards::anything : Afterwards::attributes);
    if (listed == kNoDirectory) return kNothing;
    if (listed != 0 && listed != kNamesLeftOut) {
        trace_message(kFindfile, Message::directory_unlisted, path.text());
        return kFailed;
    }
    PathBuffer resolved;
    if (!resolve_operand(kFindfile, path, resolved)) return kFailed;
    resolved_path = resolved.view();
    return kMatched;
}

// A directory that a link leads to: by which path it came, and where it really is. The latter tells a directory from
// others.
struct Visited {
    std::string path;
    std::string real;
};

std::string real_path(const std::string &path, bool is_local) {
    // Behind the slash, a link counts for what it leads to.
    return is_local ? real_local_path(path + "/.") : real_remote_path(path, LastComponent::followed);
}

[[gnu::noinline]] std::string start_of(const std::string &path) {
    AttrResult attributes;
    kind_of(Operand::ready(path.c_str()), attributes);
    return real_path(path, attributes.local != nullptr);
}

// The directory that a link leads to, over further links if need be. Its path is empty when there is none.
[[gnu::noinline]] Visited directory_behind(const std::string &path) {
    PathBuffer link;
    if (!link.assign(path)) return {};
    for (int links = 0; links < kFollowMaximum; ++links) {
        PathBuffer target;
        if (read_link(link, target) != 0 || target.empty() || leads_off_server(kFindfile, link, target)) return {};
        AttrResult attributes;
        const Kind kind = kind_of(target, attributes);
        const std::string text(target.view());
        if (kind == Kind::directory) return {text, real_path(text, attributes.local != nullptr)};
        if (kind != Kind::link) return {};
        link = target;
    }
    return {};
}

class Walk {
  public:
    explicit Walk(std::string pattern) : pattern_(std::move(pattern)) {}

    // Walks the tree. What could not be looked at may have been what somebody looks for: then the result is no answer.
    uint32_t tree(const Operand &path, int32_t depth) {
        const uint32_t result = directory(path, "", depth);
        return incomplete_ ? static_cast<uint32_t>(kFailed) : result;
    }

  private:
    // Walks a directory; real tells where it is, and is empty for the first one.
    uint32_t directory(const Operand &path, std::string real, int32_t depth) {
        if (depth == maxdepth) return kFailed;
        NameList names;
        std::string resolved;
        const FindResult listed = list_directory(path, names, resolved);
        if (listed == kFailed) incomplete_ = true;
        if (listed != kMatched) return listed;
        if (chain_.size() == kNestingMaximum) {
            trace_failure(kFindfile, "%s is nested too deeply", resolved.c_str());
            return kFailed;
        }
        if (chain_.empty() && has_option(kFindFollow)) real = start_of(resolved);
        chain_.push_back(std::move(real));
        uint32_t result = kNothing;
        for (const std::string &name : names) {
            if (!is_usable(resolved, name)) continue;
            std::string full = resolved;
            full.append("/").append(name);
            if (entry(full, name, depth) == kMatched) result = kMatched;
        }
        chain_.pop_back();
        return result;
    }

    static bool is_usable(const std::string &directory, const std::string &name) {
        if (is_entry_name(name)) return true;
        trace_failure(kFindfile, "%s lists a name that is none: %s", directory.c_str(), name.c_str());
        return false;
    }

    // Returns whether the entry, or something below it, matched. What links lead to does not count.
    uint32_t entry(const std::string &path, const std::string &name, int32_t depth) {
        if (path.size() >= PathBuffer::kSize) return kNothing;
        AttrResult attributes;
        Kind kind = kind_of(Operand::ready(path.c_str()), attributes);
        if (attributes.empty()) kind = Kind::missing;
        if (kind == Kind::missing) incomplete_ = true;
        if (has_option(kFindFollow) && kind == Kind::link) {
            follow(path, depth);
            return kNothing;
        }
        const std::string real = chain_.back() + "/" + name;
        if (has_option(kFindFollow) && kind == Kind::directory && leads_back(real, path)) return kNothing;
        const bool matched = matches(pattern_, name) && kind != Kind::missing && passes_tests(kind, attributes, path);
        if (matched) report_match(path);
        if (kind != Kind::directory) return matched ? kMatched : kNothing;
        const uint32_t below = directory(Operand::ready(path.c_str()), real, depth + 1);
        return matched || below == kMatched ? kMatched : kNothing;
    }

    // Following a link does not deepen the walk, so nothing but this ends one that leads back.
    void follow(const std::string &path, int32_t depth) {
        const Visited target = directory_behind(path);
        if (target.path.empty()) return;
        if (leads_back(target.real, path)) return;
        directory(Operand::ready(target.path.c_str()), target.real, depth);
    }

    // Whether a directory is one of those being walked. Its path may be without a link: one on the way led above it.
    bool leads_back(const std::string &real, const std::string &path) const {
        if (std::find(chain_.begin(), chain_.end(), real) == chain_.end()) return false;
        trace_failure(kFindfile, "%s leads back to %s and is not followed", path.c_str(), real.c_str());
        return true;
    }

    std::string pattern_;
    bool incomplete_ = false;
    std::vector<std::string> chain_;  // where the directories being walked are, the outermost first
};

}  // namespace

uint32_t findfile(const Operand &directory, const char *pattern, int32_t depth) {
    if (directory.text() == nullptr) {
        trace_message(kFindfile, Message::first_operand_missing);
        return kFailed;
    }
    Walk walk(pattern == nullptr ? "" : pattern);
    return walk.tree(directory, depth);
}
