// SPDX-License-Identifier: Apache-2.0
// What a recursive copy left out: its status does not tell, and each failure stands where it happened.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class CopyTally {
  public:
    // Begins anew. top: the directory whose paths are shown without it.
    void begin(std::string_view top);

    // One file of the copy, or a directory that could not be copied as a whole.
    void count(std::string_view path, bool copied);

    std::size_t missing() const { return missing_; }

    // Says how many files were not copied, and which, when there are any.
    void tell() const;

  private:
    static constexpr std::size_t kShown = 5;  // names

    std::string top_;
    std::size_t files_ = 0;
    std::size_t missing_ = 0;
    bool has_capitals_ = false;  // a name that is missing
    std::vector<std::string> names_;
};
