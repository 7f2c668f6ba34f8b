// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/resolve.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/paths.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"

namespace {

bool first_operand_holds_question_mark() {
    return fname != nullptr && std::strchr(fname, '?') != nullptr;
}

// Whether a path lacks nothing but its last component, so that what realpath leaves is all of it.
bool has_parent(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.remove_suffix(1);
    const std::size_t separator = path.rfind('/');
    const std::string parent(separator == std::string_view::npos ? "." : path.substr(0, separator + 1));
    char system_path[PATH_MAX] = {};
    return realpath(parent.c_str(), system_path) != nullptr;
}

// On failure realpath leaves the path up to the first component that is missing. That text is what a command goes on
// with, unless there is none or it does not fit.
void resolve_by_system(uint32_t *status, const char *path, PathBuffer &resolved) {
    char system_path[PATH_MAX] = {};
    *status = 1;
    if (realpath(path, system_path) != nullptr) return;
    if (system_path[0] == '\0' || !resolved.assign(system_path)) return;
    if (is_strict(Strict::location) && !has_parent(path)) return;
    *status = 0;
}

}  // namespace

int32_t sslnpd(const char *path) {
    const std::string_view text = path;
    const std::size_t dots = text.find("..");
    const std::size_t backslash = text.rfind('\\');
    if (dots != std::string_view::npos) {
        const bool dots_lead = backslash == std::string_view::npos ? dots == 0 : backslash + 1 >= dots;
        if (dots_lead) return 1;
    }
    return first_operand_holds_question_mark() ? 1 : 0;
}

void sslnrmc(uint32_t *status, const char *path, PathBuffer &resolved) {
    resolved.clear();
    if (sslnpd(path) == 1) {
        resolve_by_system(status, path, resolved);
        return;
    }
    *status = 0;
    if (!platform_normalize_path(path, resolved)) {
        trace_message("sslnrmc", Message::path_unresolvable, path);
        *status = 1;
    }
}

void remove_newline(char *text) {
    const std::size_t length = std::strlen(text);
    if (length > 0 && text[length - 1] == '\n') text[length - 1] = '\0';
}

std::size_t last_separator(std::string_view path) {
    const std::size_t backslash = path.rfind('\\');
    const std::size_t behind = backslash == std::string_view::npos ? 0 : backslash + 1;
    const std::size_t slash = path.rfind('/');
    return slash != std::string_view::npos && slash >= behind ? slash : backslash;
}

bool resolve_operand(const char *function, const Operand &path, PathBuffer &resolved) {
    if (path.text() == nullptr) {
        trace_message(function, Message::first_operand_missing);
        return false;
    }
    if (resolve_path(path, resolved)) return true;
    trace_message(function, Message::path_unresolvable, path.text());
    return false;
}

bool join_path(const char *function, const PathBuffer &directory, std::string_view name, PathBuffer &full) {
    full = directory;
    if (is_entry_name(name)) return extend_path(function, full, "/") && extend_path(function, full, name);
    trace_failure(function, "%s lists a name that is none: %.*s", directory.c_str(), static_cast<int>(name.size()),
                  name.data());
    return false;
}

bool extend_path(const char *function, PathBuffer &path, std::string_view text) {
    if (path.append(text)) return true;
    trace_message(function, Message::path_unresolvable, path.c_str());
    return false;
}
