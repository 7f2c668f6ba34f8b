// SPDX-License-Identifier: Apache-2.0
// Names of a directory's entries, of which there may be millions: one behind the other, in pieces that stay where they
// are, so that a list that grows is never there twice.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

class NameList {
  public:
    class Iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = std::string;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = std::string;

        Iterator(const NameList &names, std::size_t at) : names_(&names), at_(at) {}
        std::string operator*() const { return std::string((*names_)[at_]); }
        Iterator &operator++() {
            ++at_;
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++at_;
            return before;
        }
        bool operator==(const Iterator &other) const { return at_ == other.at_; }

      private:
        const NameList *names_;
        std::size_t at_;
    };

    void add(std::string_view name) {
        if (pieces_.empty() || pieces_.back().text.size() + name.size() > kPieceBytes) begin_piece(name.size());
        Piece &piece = pieces_.back();
        piece.starts.push_back(static_cast<uint16_t>(piece.text.size()));
        piece.text += name;
        ++size_;
    }

    // Valid until the list changes.
    std::string_view operator[](std::size_t index) const {
        const auto behind =
            std::upper_bound(pieces_.begin(), pieces_.end(), index,
                             [](std::size_t wanted, const Piece &piece) { return wanted < piece.first; });
        const Piece &piece = *std::prev(behind);
        const std::size_t at = index - piece.first;
        const std::size_t end = at + 1 < piece.starts.size() ? piece.starts[at + 1] : piece.text.size();
        return std::string_view(piece.text).substr(piece.starts[at], end - piece.starts[at]);
    }

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    Iterator begin() const { return {*this, 0}; }
    Iterator end() const { return {*this, size_}; }

    void clear() {
        pieces_ = {};
        size_ = 0;
    }

    // Of memory, about.
    unsigned long bytes() const { return pieces_.size() * (kPieceBytes + sizeof(Piece)) + size_ * sizeof(uint16_t); }

  private:
    static constexpr std::size_t kPieceBytes = 60000;  // the offset of each name fits 16 bits

    struct Piece {
        std::size_t first = 0;  // the number of its first name
        std::string text;
        std::vector<uint16_t> starts;
    };

    void begin_piece(std::size_t least) {
        if (!pieces_.empty()) pieces_.back().starts.shrink_to_fit();
        Piece &piece = pieces_.emplace_back();
        piece.first = size_;
        // Most directories are small.
        piece.text.reserve(pieces_.size() == 1 ? least : std::max(kPieceBytes, least));
    }

    std::vector<Piece> pieces_;
    std::size_t size_ = 0;
};
