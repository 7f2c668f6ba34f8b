// SPDX-License-Identifier: Apache-2.0
// One file compiled by gencat, held in memory: what was judged is what is read, whatever becomes of the file. Its
// offsets are checked before they are followed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class CompiledCatalogue {
  public:
    // Nothing when the file is no sound catalogue.
    static std::optional<CompiledCatalogue> read(const std::string &path);

    // The text of a message; empty when there is none.
    std::string text(int message) const;

  private:
    struct Slot {
        uint32_t set, message, offset;
    };

    explicit CompiledCatalogue(std::vector<char> bytes) : bytes_(std::move(bytes)) {}
    bool is_sound();
    Slot slot(uint64_t number) const;

    std::vector<char> bytes_;
    uint64_t slots_ = 0;
    uint64_t texts_ = 0;  // where they begin
};
