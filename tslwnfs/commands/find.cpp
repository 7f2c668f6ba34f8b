// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/find.h"

#include <algorithm>
#include <string>
#include <vector>

#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/find_exec.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/options.h"
#include "tslwnfs/frontend/trace.h"
#include "tslwnfs/frontend/wildcard.h"
#include "tslwnfs/storage/resolve.h"

namespace {

constexpr const char *kFunction = "findfile";
constexpr uint32_t kMatched = 0;
constexpr uint32_t kFailed = 1;
constexpr uint32_t kNothingMatched = 4;

// Directories that may be open inside one another: following a link does not deepen the walk, so maxdepth alone would
// let a long chain of links use up the stack.
constexpr std::size_t kMaximumNesting = 2000;

bool option(uint32_t bit) {
    return (COMMAND_OPTION & bit) != 0;
}

bool matches(std::string pattern, std::string text) {
    return strwildcmp(tolower_string(pattern.data()), tolower_string(text.data())) != 0;
}

// The size as the size tests see it: the low 32 bits, with their sign.
int32_t tested_size(const AttrResult &entry) {
    const uint64_t size = entry.is_local != 0 ? static_cast<uint64_t>(entry.local->st_size) : entry.remote->size;
    return static_cast<int32_t>(static_cast<uint32_t>(size));
}

bool within_bounds(int32_t size) {
    if (option(kFindSizeAtLeast) && size < find_size_gsize) return false;
    return !option(kFindSizeAtMost) || size <= find_size_lsize;
}

bool has_wanted_type(uint32_t type) {
    if (!option(kFindType)) return true;
    if (type == kTypeDirectory) return find_type_c == 'd';
    return type == kTypeRegular && find_type_c == 'f';
}

bool passes_tests(const PathBuffer &path, uint32_t type, const AttrResult &entry) {
    if (entry.empty() || !has_wanted_type(type)) return false;
    const int32_t size = tested_size(entry);
    if (!within_bounds(size)) return false;
    if (option(kFindSize) && size != find_size_size) return false;
    return !option(kFindPath) || find_path_pattern == nullptr || matches(find_path_pattern, path.c_str());
}

void report_match(const PathBuffer &path) {
    if (!option(kFindExec) || option(kFindPrint)) std::printf("%s \n", path.c_str());
    if (option(kFindExec)) run_for_match(path.view());
}

class Walk {
  public:
    explicit Walk(const char *name_pattern) : name_pattern_(name_pattern) {}

    uint32_t directory(const char *path, int32_t depth);

  private:
    bool entry(const PathBuffer &parent, const std::string &name, int32_t depth);
    void follow(const PathBuffer &link, int32_t depth);
    uint32_t list(const char *path, PathBuffer &resolved, NameList &names) const;

    const char *name_pattern_;
    std::size_t nesting_ = 0;
    std::vector<std::string> followed_;  // the directories that links led to, from the outermost to the current one
};

uint32_t Walk::list(const char *path, PathBuffer &resolved, NameList &names) const {
    if (nesting_ >= kMaximumNesting) {
        tslwnfswrf(3, kFunction, "%s: more than %zu directories inside one another\n", path, kMaximumNesting);
        return kFailed;
    }
    if (read_dir(path, names, 0) != 0) {
        trace_message(kFunction, Message::directory_unlisted, path);
        return kFailed;
    }
    uint32_t unusable = 0;
    sslnrmc(&unusable, path, resolved);
    if (unusable == 0) return 0;
    trace_message(kFunction, Message::path_unresolvable, path);
    return kFailed;
}

uint32_t Walk::directory(const char *path, int32_t depth) {
    if (depth == maxdepth) return kFailed;
    NameList names;
    PathBuffer resolved;
    if (list(path, resolved, names) != 0) return kFailed;
    ++nesting_;
    bool matched = false;
    for (const std::string &name : names) {
        if (entry(resolved, name, depth)) matched = true;
    }
    --nesting_;
    return matched ? kMatched : kNothingMatched;
}

// Returns whether the entry, or something below it, matched.
bool Walk::entry(const PathBuffer &parent, const std::string &name, int32_t depth) {
    PathBuffer full = parent;
    if (!full.append("/") || !full.append(name)) {
        tslwnfswrf(3, kFunction, "%s/%s: the path is too long\n", parent.c_str(), name.c_str());
        return false;
    }
    AttrResult attributes;
    const uint32_t type = getattrdir(full.c_str(), attributes, 0);
    if (type == kTypeLink && option(kFindFollow)) {
        follow(full, depth);
        return false;
    }
    bool matched = false;
    if (matches(name_pattern_, name) && type != kTypeFailure && passes_tests(full, type, attributes)) {
        report_match(full);
        matched = true;
    }
    if (type == kTypeDirectory && directory(full.c_str(), depth + 1) == kMatched) matched = true;
    return matched;
}

// A link that leads back to a directory another link led to would be followed without end: it stops there.
void Walk::follow(const PathBuffer &link, int32_t depth) {
    PathBuffer target;
    if (read_link(link.c_str(), target) != 0 || target.empty()) return;
    if (std::find(followed_.begin(), followed_.end(), target.view()) != followed_.end()) {
        tslwnfswrf(3, kFunction, "%s leads back to %s\n", link.c_str(), target.c_str());
        return;
    }
    followed_.emplace_back(target.view());
    static_cast<void>(directory(target.c_str(), depth));
    followed_.pop_back();
}

}  // namespace

uint32_t findfile(const char *directory, const char *name_pattern, int32_t depth) {
    if (directory == nullptr || name_pattern == nullptr) {
        trace_message(kFunction, Message::directory_unlisted, directory == nullptr ? "" : directory);
        return kFailed;
    }
    return Walk(name_pattern).directory(directory, depth);
}
