// SPDX-License-Identifier: Apache-2.0
// The words of the command line, taken one after another.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

// What a look at the command line comes to. After refused the reason has been told already.
enum class ParseOutcome { accepted, usage, help, dd_help, refused };

class Words {
  public:
    // all is the vector as the program received it, its own name first; it must outlive the option state, which points
    // into it. A last word "-y" answers questions and belongs to no grammar: it is never seen here, except by rest().
    explicit Words(std::span<char *> all);

    bool trailing_yes() const { return seen_ < all_.size(); }
    std::size_t total() const { return seen_; }  // the program's own name included
    std::size_t left() const { return seen_ - position_; }
    bool done() const { return position_ == seen_; }

    // The word at hand; null when all are taken.
    const char *current() const { return done() ? nullptr : all_[position_]; }
    bool is(std::string_view word) const { return !done() && word == current(); }
    bool at_option() const { return !done() && current()[0] == '-'; }

    // Gives the word at hand and goes on to the next; null when all are taken.
    const char *take();
    bool take_if(std::string_view word);

    // Goes to a position counted from the program's own name, which is 0; to the end when there are fewer words.
    void move_to(std::size_t position);

    // Takes everything up to the end of the line, a last "-y" included.
    std::span<char *> take_rest();

  private:
    std::span<char *> all_;
    std::size_t seen_;
    std::size_t position_ = 1;
};
