// SPDX-License-Identifier: Apache-2.0
// The answer to the question for TLS, which comes before anything about the server is known.
//
// The first byte sets how the stream is cut, the rest is the stream. However it is cut, the outcome is the same; no
// more bytes are asked for than the answer can have, and an offer is only seen where its word stands.
#include "nfstdm/rpc/message/starttls.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "nfstdm/rpc/message/message.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace nfstdm;
using fuzz::Bytes;
using fuzz::require;

constexpr uint32_t kXid = 0x01020304;

struct Outcome {
    std::string failure;
    std::optional<bool> offered;  // nothing: failed, or the stream ended first
    std::size_t taken = 0;

    bool operator==(const Outcome &) const = default;
};

Outcome read(Bytes stream, std::size_t piece) {
    rpc::StartTlsQuestion question(100003, 3, kXid);
    Outcome outcome;
    while (question.missing() > 0 && outcome.taken < stream.size()) {
        require(question.missing() <= rpc::kReplyHeaderMaximum, "an answer is small");
        const auto next =
            stream.subspan(outcome.taken).first(std::min({piece, question.missing(), stream.size() - outcome.taken}));
        const Status status = question.take(next);
        outcome.taken += next.size();
        if (status.ok()) continue;
        outcome.failure = status.text();
        return outcome;
    }
    if (question.missing() > 0) return outcome;
    const auto offered = question.offered();
    outcome.failure = offered.status().text();
    if (offered.ok()) outcome.offered = offered.value();
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t piece = input.byte() + std::size_t{1};
    const Outcome whole = read(input.rest(), input.rest().size() + 1);
    require(read(input.rest(), piece) == whole, "how the stream is cut does not matter");
    require(read(input.rest(), 1) == whole, "nor is a single byte lost");
    if (whole.offered.value_or(false)) {
        // The marks of fragments may stand between its letters.
        std::string_view left = "STARTTLS";
        for (const char c : input.text())
            if (!left.empty() && c == left.front()) left.remove_prefix(1);
        require(left.empty(), "an offer is its word");
    }
    return 0;
}
