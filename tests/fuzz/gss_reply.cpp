// SPDX-License-Identifier: Apache-2.0
// What a server says about security contexts, and results that are wrapped.
//
// The first byte chooses the protection, the second whether it is an answer to an opening, results as they came, or
// contents that are wrapped as they should be. Whatever comes, no context is used whose proof does not hold, and
// nothing comes out of a wrapping but what a server put in.
#include <algorithm>
#include <vector>

#include "nfstdm/rpc/auth/gss.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"
#include "tests/fuzz/fuzz.h"
#include "tests/unit/rpc/fake_gss.h"

namespace {

using namespace nfstdm;
using fuzz::Bytes;
using fuzz::require;
using Material = std::vector<std::byte>;
using Readiness = rpc::Authenticator::Readiness;

constexpr uint32_t kWindow = 8;

Material window_proof(uint32_t window) {
    xdr::Writer word;
    word.put_u32(window);
    return test::fake_proof(word.bytes());
}

// The answer to an opening, with the proof that belongs to its window.
bool open_with(rpc::GssAuthenticator &authenticator, Bytes answer, uint32_t window) {
    const auto opening = authenticator.next_opening(std::nullopt);
    require(opening.ok() && opening.value().has_value(), "an opening begins with a call");
    const Material proof = window_proof(window);
    require(opening.value()->authenticator->check({rpc::kRpcsecGss, proof}, nullptr).ok(), "its proof is kept");
    const auto next = authenticator.next_opening(answer);
    return next.ok() && !next.value();
}

Material good_answer() {
    xdr::Writer answer;
    answer.put_opaque(test::bytes_of("handle"));
    for (const uint32_t word : {0U, 0U, kWindow})
        answer.put_u32(word);
    answer.put_opaque(test::bytes_of("token"));
    return answer.take();
}

Material wrapped(rpc::GssService protection, uint32_t sequence, Bytes contents) {
    xdr::Writer body;
    body.put_u32(sequence);
    body.put_fixed(contents);
    xdr::Writer whole;
    const bool integrity = protection == rpc::GssService::integrity;
    whole.put_opaque(integrity ? Material(body.bytes().begin(), body.bytes().end()) : test::fake_wrapped(body.bytes()));
    if (integrity) whole.put_opaque(test::fake_proof(body.bytes()));
    return whole.take();
}

bool same(Bytes one, Bytes other) {
    return std::ranges::equal(one, other);
}

void examine_results(rpc::GssAuthenticator &authenticator, rpc::GssService protection, bool properly, Bytes rest) {
    require(open_with(authenticator, good_answer(), kWindow), "a good answer makes a context");
    std::unique_ptr<rpc::Transmission> transmission;
    xdr::Writer head;
    head.put_u32(0);
    require(authenticator.put(head, transmission).ok(), "a context is there to be used");
    const Bytes contents = rest.first(rest.size() / xdr::kWord * xdr::kWord);
    Material results = properly ? wrapped(protection, 1, contents) : Material(rest.begin(), rest.end());
    const std::size_t size = results.size();
    const auto taken = authenticator.unwrap(results, transmission.get());
    require(!properly || (taken.ok() && same(taken.value(), contents)), "what was wrapped comes out");
    // The padding is no part of what is proven.
    if (taken.ok() && taken.value().size() % xdr::kWord == 0)
        require(wrapped(protection, 1, taken.value()).size() == size, "nothing but what was wrapped comes out");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    test::fake_gss() = {};
    const auto protection = input.byte() % 2 == 0 ? rpc::GssService::integrity : rpc::GssService::privacy;
    const uint8_t kind = input.byte() % 3;
    rpc::GssAuthenticator authenticator(test::fake_gss_module(), "nfs@db1", protection);
    if (kind > 0) {
        examine_results(authenticator, protection, kind == 1, input.rest());
        return 0;
    }
    const bool ready = open_with(authenticator, input.rest(), kWindow);
    require(ready == (authenticator.readiness() == Readiness::ready), "a context that is made is ready");
    return 0;
}
