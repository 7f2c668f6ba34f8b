// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/export_printer.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "tslwnfs/output/output.h"

namespace {

constexpr std::size_t kWord = 4;        // bytes
constexpr std::size_t kFirstUsed = 32;  // bytes of the first piece in front of the list
constexpr std::size_t kPiece = 4000;    // bytes, without the head
constexpr std::size_t kNameMaximum = 255;

// Reads the reply word by word, stepping over the heads of its pieces. Every read gives nothing once the reply has
// ended.
class ReplyWords {
  public:
    explicit ReplyWords(std::span<const uint8_t> reply) : left_(reply) {}

    std::optional<uint32_t> word() {
        uint8_t bytes[kWord];
        if (!take(bytes)) return std::nullopt;
        return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
    }

    std::optional<std::string> counted_string() {
        const auto length = word();
        if (!length || *length > left_.size()) return std::nullopt;
        std::string text;
        for (std::size_t read = 0; read < *length; read += kWord) {
            uint8_t bytes[kWord];
            if (!take(bytes)) return std::nullopt;
            text.append(reinterpret_cast<const char *>(bytes), std::min(kWord, *length - read));
        }
        text.resize(std::min({text.size(), text.find('\0'), kNameMaximum}));
        return text;
    }

  private:
    bool take(uint8_t (&bytes)[kWord]) {
        if (left_.size() < kWord) return false;
        std::memcpy(bytes, left_.data(), kWord);
        left_ = left_.subspan(kWord);
        position_ += kWord;
        if (position_ % kPiece == 0) left_ = left_.subspan(std::min(kWord, left_.size()));
        return true;
    }

    std::span<const uint8_t> left_;
    std::size_t position_ = kFirstUsed;
};

// The groups of one export. The first one is shown twice, as it always was.
void print_groups(ReplyWords &words) {
    bool first = true;
    while (words.word().value_or(0) != 0) {
        const auto group = words.counted_string();
        if (!group) break;
        const std::string shown = shown_name(*group);
        if (first) print("%s ", shown.c_str());
        print(",%s ", shown.c_str());
        first = false;
    }
    if (first) print("%s", "(everyone)");
}

}  // namespace

int32_t tslwnfs_expout(std::span<const uint8_t> reply) {
    ReplyWords words(reply);
    while (words.word().value_or(0) != 0) {
        const auto directory = words.counted_string();
        if (!directory) break;
        print("%-34s ", shown_name(*directory).c_str());
        print_groups(words);
        print("\n");
    }
    return 0;
}
