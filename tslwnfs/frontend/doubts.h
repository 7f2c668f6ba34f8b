// SPDX-License-Identifier: Apache-2.0
// What is most likely not meant by the operands of a command, though it is carried out. A person at a terminal reads
// of it; scripts see no difference.
#pragma once

#include <set>
#include <string>

// Names that are built are in lower case, so that built is used in place of the path that was typed. Warns when
// something is there under the name as typed.
void warn_of_lowered_destination(const std::string &typed, const std::string &built);

// A source that was typed could not be used: hints at the one that is there under its name in lower case.
void hint_at_lowered_source(const std::string &directory, const std::string &name);

// An operand that was typed could not be resolved: hints at what is wrong with it.
void hint_at_unusable_operand(const std::string &operand);

// Where the files of one copy go. Several files that go to one name leave only the last of them.
class CopiesToOneName {
  public:
    // True when a name took a file before and must not take another, which would be an error. Warns once of the first
    // that takes another all the same. What goes into a directory keeps its own name there.
    bool found(const std::string &destination);

  private:
    std::set<std::string> taken_;
    bool warned_ = false;
};

// A destination that was typed as a directory, by the separator at its end.
class MeantAsDirectory {
  public:
    // is_meant: by the separator.
    MeantAsDirectory(bool is_meant, std::string destination);

    // True when there is no such directory, nor is one about to be made for a directory to copy, and that is an error.
    bool is_refused(const std::string &source, bool is_recursive) const;
    // The command succeeded: warns when there is a file now.
    void warn_of_file() const;

  private:
    std::string destination_;
    bool is_missing_;
};
