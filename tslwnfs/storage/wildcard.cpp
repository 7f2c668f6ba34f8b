// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/wildcard.h"

#include <cctype>
#include <cstring>

namespace {

bool only_stars(const char *pattern) {
    return pattern[std::strspn(pattern, "*")] == '\0';
}

// True when a pattern character that is no "*" stands for a character of the name.
bool stands_for(char pattern, char name) {
    return pattern == '?' || (pattern != '\0' && pattern == name);
}

// The name that strwildmatch builds; p and s are its positions in pattern and name.
class NameBuilder {
  public:
    NameBuilder(const char *pattern, const char *name, char *out, std::size_t out_size)
        : p_(pattern), s_(name), out_(out), room_(out_size > 0 ? out_size - 1 : 0) {}

    void build() {
        if (std::strpbrk(p_, "*?") == nullptr) return append(p_);
        if (*s_ != '\0' && !leading_part()) return;
        while (*s_ != '\0') {
            if (*p_ == '*' ? !enter_star() : !step()) return;
        }
        tail();
    }

  private:
    // Up to the first "*", literals of the pattern win over the name. False when the result is complete.
    bool leading_part() {
        while (*s_ != '\0' && *p_ != '*') {
            if (*p_ == '\0') return false;
            put_from_both();
        }
        return true;
    }

    bool enter_star() {
        if (p_[1] == '\0') {
            append(s_);
            return false;
        }
        restart_ = ++p_;
        resume_ = s_ + 1;
        after_star_ = true;
        return true;
    }

    // One character behind a "*". Right behind it the name goes on until the pattern's next character is met; from
    // there on literals win again, without a way back.
    bool step() {
        if (after_star_ && !stands_for(*p_, *s_)) {
            put(*s_);
            s_ = resume_++;
            p_ = restart_;
        } else {
            put_from_both();
            after_star_ = false;
        }
        if (*s_ != '\0' && *p_ == '\0') {
            append(s_);
            return false;
        }
        return true;
    }

    void put_from_both() {
        put(stands_for(*p_, *s_) ? *s_ : *p_);
        ++p_;
        ++s_;
    }

    // The name has ended: what is literal in the rest of the pattern follows.
    void tail() {
        for (; *p_ != '\0'; ++p_) {
            if (*p_ != '*' && *p_ != '?') put(*p_);
        }
    }

    void append(const char *text) {
        while (*text != '\0')
            put(*text++);
    }

    void put(char c) {
        if (room_ == 0) return;
        *out_++ = c;
        *out_ = '\0';
        --room_;
    }

    const char *p_;
    const char *s_;
    const char *restart_ = nullptr;
    const char *resume_ = nullptr;
    bool after_star_ = false;
    char *out_;
    std::size_t room_;
};

}  // namespace

int strwildcmp(const char *pattern, const char *name) {
    const char *restart = nullptr;  // behind the most recent "*"
    const char *resume = nullptr;   // where the name is taken up again when what follows that "*" does not match
    while (*name != '\0') {
        if (*pattern == '*') {
            if (pattern[1] == '\0') return 1;
            restart = ++pattern;
            resume = name + 1;
        } else if (stands_for(*pattern, *name)) {
            ++pattern;
            ++name;
        } else if (restart != nullptr) {
            pattern = restart;
            name = resume++;
        } else {
            return 0;
        }
    }
    return only_stars(pattern) ? 1 : 0;
}

int strwildmatch(const char *pattern, const char *name, char *out, std::size_t out_size) {
    NameBuilder(pattern, name, out, out_size).build();
    return 1;
}

char *tolower_string(char *text) {
    for (char *c = text; *c != '\0'; ++c)
        *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
    return text;
}

std::string lowered(std::string_view text) {
    std::string copy(text);
    tolower_string(copy.data());
    return copy;
}
