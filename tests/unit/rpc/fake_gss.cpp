// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/rpc/fake_gss.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

struct NfstdmGssContext {
    unsigned rounds = 0;
};

namespace nfstdm::test {

namespace {

constexpr std::byte kTurn{0xA5};
constexpr std::string_view kProof = "proof ";
constexpr std::size_t kProofSize = kProof.size() + 4;
constexpr std::string_view kHeader = "sealed";

void give(std::span<const std::byte> bytes, NfstdmGssBytes *to) {
    auto *const copy = new std::byte[bytes.size()];
    std::copy(bytes.begin(), bytes.end(), copy);
    *to = {copy, bytes.size()};
    ++fake_gss().given;
}

std::span<const std::byte> span_of(const void *bytes, size_t size) {
    return {static_cast<const std::byte *>(bytes), size};
}

void fail(NfstdmGssTrouble trouble, NfstdmGssFailure *failure) {
    constexpr std::string_view kWords = "said the system";
    *failure = {trouble, {}};
    std::ranges::copy(kWords, failure->words);
}

NfstdmGssContext *create(const char *, NfstdmGssFailure *failure) {
    if (fake_gss().create_fails) {
        fail(fake_gss().create_trouble, failure);
        return nullptr;
    }
    ++fake_gss().alive;
    ++fake_gss().made;
    return new NfstdmGssContext;
}

NfstdmGssStep step(NfstdmGssContext *context, const void *, size_t, NfstdmGssBytes *next, uint32_t *seconds,
                   NfstdmGssFailure *failure) {
    if (fake_gss().step_fails) {
        fail(fake_gss().step_trouble, failure);
        return kGssFailed;
    }
    *seconds = fake_gss().seconds;
    if (context->rounds++ == fake_gss().rounds) return kGssComplete;
    give(bytes_of("token " + std::to_string(context->rounds)), next);
    return kGssContinue;
}

bool get_mic(NfstdmGssContext *, const void *message, size_t size, NfstdmGssBytes *mic, NfstdmGssFailure *) {
    give(fake_proof(span_of(message, size)), mic);
    return true;
}

bool verify_mic(NfstdmGssContext *, const void *message, size_t size, const void *mic, size_t mic_size) {
    return std::ranges::equal(fake_proof(span_of(message, size)), span_of(mic, mic_size));
}

bool wrap_room(NfstdmGssContext *, size_t, NfstdmGssRoom *room, NfstdmGssFailure *) {
    *room = {kHeader.size(), kProofSize};
    return true;
}

bool wrap(NfstdmGssContext *, void *area, size_t size, const NfstdmGssRoom *room, NfstdmGssFailure *) {
    auto *const first = static_cast<std::byte *>(area);
    std::ranges::copy(fake_wrapped(span_of(first + room->before, size - room->before - room->behind)), first);
    return true;
}

// In its place, as those do who decrypt before they know whether it holds together.
bool unwrap(NfstdmGssContext *, void *area, size_t size, NfstdmGssRoom *room) {
    *room = {kHeader.size(), kProofSize};
    if (size < room->before + room->behind) return false;
    const std::span<std::byte> all(static_cast<std::byte *>(area), size);
    const Bytes wrapped(all.begin(), all.end());
    const auto message = all.first(size - room->behind).subspan(room->before);
    for (std::byte &each : message)
        each ^= kTurn;
    return std::ranges::equal(fake_wrapped(message), wrapped);
}

void destroy(NfstdmGssContext *context) {
    --fake_gss().alive;
    delete context;
}

void release(NfstdmGssBytes *bytes) {
    if (bytes->data == nullptr) return;
    delete[] static_cast<std::byte *>(bytes->data);
    --fake_gss().given;
    *bytes = {};
}

void explain(uint32_t major, uint32_t minor, NfstdmGssFailure *failure) {
    fail(minor == 7 ? kGssTroubleClockSkew : static_cast<NfstdmGssTrouble>(minor), failure);
    static_cast<void>(major);
}

}  // namespace

FakeGss &fake_gss() {
    static FakeGss fake;
    return fake;
}

const NfstdmGssModule &fake_gss_module() {
    static constexpr NfstdmGssModule kModule = {
        kNfstdmGssVersion, create, step, get_mic, verify_mic, wrap_room, wrap, unwrap, destroy, release, explain,
    };
    return kModule;
}

Bytes fake_proof(std::span<const std::byte> message) {
    uint32_t sum = 17;
    for (const std::byte each : message)
        sum = sum * 31 + std::to_integer<uint32_t>(each);
    Bytes proof = bytes_of(kProof);
    for (int shift = 24; shift >= 0; shift -= 8)
        proof.push_back(static_cast<std::byte>(sum >> shift & 0xFF));
    return proof;
}

Bytes fake_wrapped(std::span<const std::byte> message) {
    Bytes wrapped = bytes_of(kHeader);
    std::ranges::transform(message, std::back_inserter(wrapped), [](std::byte each) { return each ^ kTurn; });
    const Bytes proof = fake_proof(message);
    wrapped.insert(wrapped.end(), proof.begin(), proof.end());
    return wrapped;
}

}  // namespace nfstdm::test
