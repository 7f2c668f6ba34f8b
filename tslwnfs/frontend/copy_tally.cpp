// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/copy_tally.h"

#include <algorithm>
#include <cctype>

#include "tslwnfs/options/strict.h"
#include "tslwnfs/terminal/screen.h"

void CopyTally::begin(std::string_view top) {
    *this = {};
    top_ = std::string(top) + "/";
}

void CopyTally::count(std::string_view path, bool copied) {
    ++files_;
    if (copied) return;
    ++missing_;
    const auto is_capital = [](unsigned char character) { return std::isupper(character) != 0; };
    if (path.starts_with(top_)) {
        path.remove_prefix(top_.size());
        if (std::any_of(path.begin(), path.end(), is_capital)) has_capitals_ = true;
    }
    if (names_.size() < kShown) names_.emplace_back(path);
}

void CopyTally::tell() const {
    if (missing_ == 0) return;
    const char *what = files_ == 1     ? " file was not copied"
                       : missing_ == 1 ? " files was not copied"
                                       : " files were not copied";
    std::string line = "warning: " + std::to_string(missing_) + " of " + std::to_string(files_) + what;
    for (std::size_t name = 0; name < names_.size(); ++name)
        line += (name == 0 ? ": " : ", ") + names_[name];
    if (missing_ > names_.size()) line += ", and " + std::to_string(missing_ - names_.size()) + " more";
    if (has_capitals_ && !is_strict(Strict::names)) {
        line += "; names are put in lower case: TSLWNFS_STRICT=names keeps them";
    }
    terminal::say(line);
}
