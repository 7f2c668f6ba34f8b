// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/keyed_hash.h"

#include <bit>
#include <cstddef>

#include "nfstdm/base/random.h"

namespace nfstdm {
namespace {

class SipState {
  public:
    explicit SipState(const HashKey &key)
        : v0_(key.low ^ 0x736f6d6570736575),
          v1_(key.high ^ 0x646f72616e646f6d ^ 0xee),  // 0xee: for 128 bits
          v2_(key.low ^ 0x6c7967656e657261),
          v3_(key.high ^ 0x7465646279746573) {}

    void take(uint64_t word) {
        v3_ ^= word;
        rounds(2);
        v0_ ^= word;
    }

    Hash128 finish() {
        v2_ ^= 0xee;
        rounds(4);
        const uint64_t low = v0_ ^ v1_ ^ v2_ ^ v3_;
        v1_ ^= 0xdd;
        rounds(4);
        return {low, v0_ ^ v1_ ^ v2_ ^ v3_};
    }

  private:
    void rounds(int count) {
        for (int i = 0; i < count; ++i) {
            v0_ += v1_;
            v1_ = std::rotl(v1_, 13) ^ v0_;
            v0_ = std::rotl(v0_, 32);
            v2_ += v3_;
            v3_ = std::rotl(v3_, 16) ^ v2_;
            v0_ += v3_;
            v3_ = std::rotl(v3_, 21) ^ v0_;
            v2_ += v1_;
            v1_ = std::rotl(v1_, 17) ^ v2_;
            v2_ = std::rotl(v2_, 32);
        }
    }

    uint64_t v0_, v1_, v2_, v3_;
};

uint64_t word_at(std::string_view text, std::size_t at, std::size_t size) {
    uint64_t word = 0;
    for (std::size_t i = 0; i < size; ++i)
        word |= static_cast<uint64_t>(static_cast<unsigned char>(text[at + i])) << (8 * i);
    return word;
}

}  // namespace

Hash128 keyed_hash(const HashKey &key, std::string_view text) {
    constexpr std::size_t kWord = sizeof(uint64_t);
    SipState state(key);
    std::size_t at = 0;
    for (; text.size() - at >= kWord; at += kWord)
        state.take(word_at(text, at, kWord));
    state.take(word_at(text, at, text.size() - at) | static_cast<uint64_t>(text.size()) << 56);
    return state.finish();
}

const HashKey &process_hash_key() {
    static const HashKey key = [] {
        const uint64_t low = random_number();
        return HashKey{low, random_number()};
    }();
    return key;
}

}  // namespace nfstdm
