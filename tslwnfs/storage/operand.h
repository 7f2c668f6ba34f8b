// SPDX-License-Identifier: Apache-2.0
// A path as a command gets it.
//
// What a user typed is still to be resolved. What the program joined from a resolved directory and a name out of its
// listing is used as it is: a name is data, chosen by whoever may create a file, and no rule for typed text applies.
#pragma once

#include <string>
#include <string_view>

#include "platform/path_buffer.h"

// A view for the time of a call: the text must outlive it.
class Operand {
  public:
    // Typed; null when it is missing.
    Operand(const char *typed) : text_(typed) {}  // NOLINT(google-explicit-constructor): what a command line gives
    // Ready for use.
    Operand(const PathBuffer &path) : Operand(ready(path.c_str())) {}  // NOLINT(google-explicit-constructor)
    static Operand ready(const char *path) {
        Operand operand(path);
        operand.typed_ = false;
        return operand;
    }

    const char *text() const { return text_; }
    // The same, with an empty text for a missing operand.
    const char *shown() const { return text_ == nullptr ? "" : text_; }
    bool is_typed() const { return typed_; }

  private:
    const char *text_;
    bool typed_ = true;
};

// Whether a name can stand for one entry of a directory, and no other place.
constexpr bool is_entry_name(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos;
}
