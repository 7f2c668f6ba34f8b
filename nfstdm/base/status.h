// SPDX-License-Identifier: Apache-2.0
// The result of an operation inside the library: success, or a number with the words that explain it.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

namespace nfstdm {

// What can be done about a failure, whatever it is called where it comes from.
enum class Condition : uint8_t {
    none,          // nothing but to tell it
    stale,         // the server does not know the handle: look the name up again
    bad_cookie,    // the position in a directory is not valid any more: list it from its start
    not_ready,     // ask again later
    not_offered,   // the server lacks the program or its version: ask in another one
    no_operation,  // the server lacks the operation: go on without
    credential,    // the server does not take who asks, or how that is shown: show it otherwise
};

// Where a failure comes from, and its number there, which says more than the errno that fits.
struct Cause {
    enum class Source : uint8_t {
        own,     // no number
        system,  // errno
        rpc,     // auth_stat where the condition is a credential, accept_stat otherwise (RFC 5531 section 9)
        nfs,     // nfsstat3, mountstat3 (RFC 1813) or nfsstat4 (RFC 8881)
    };
    Source source = Source::own;
    uint32_t number = 0;
    Condition condition = Condition::none;
};

// number() is what the storage interface returns: an errno where one fits. text() says what failed, on which server; it
// is built where the failure happens and extended on the way up. cause() stays as it was where the failure happened.
class [[nodiscard]] Status {
  public:
    Status() = default;  // success
    Status(uint32_t number, std::string text, Cause cause = {})
        : number_(number), text_(std::move(text)), cause_(cause) {}
    Status(uint32_t number, std::string text, Condition condition)
        : Status(number, std::move(text), Cause{Cause::Source::own, 0, condition}) {}

    bool ok() const { return number_ == 0; }
    uint32_t number() const { return number_; }
    const std::string &text() const { return text_; }
    const Cause &cause() const { return cause_; }
    bool is(Condition condition) const { return cause_.condition == condition; }

    // The same failure in other words.
    Status told_as(std::string text) const { return {number_, std::move(text), cause_}; }

    // The same failure seen from further up: "context: text".
    Status in(const std::string &context) const {
        if (ok()) return {};
        return told_as(text_.empty() ? context : context + ": " + text_);
    }

  private:
    uint32_t number_ = 0;
    std::string text_;
    Cause cause_;
};

// A call of the system's failed with an errno.
inline Status system_failure(const std::string &what, int number) {
    const auto raw = static_cast<uint32_t>(number);
    return {raw, what + ": " + std::strerror(number), Cause{Cause::Source::system, raw}};
}

// A value, or the status that says why there is none.
template <class T>
class [[nodiscard]] Result {
  public:
    Result(T value) : value_(std::move(value)) {}            // NOLINT: a value is a result
    Result(Status failure) : status_(std::move(failure)) {}  // NOLINT: so is a failure; never a success

    bool ok() const { return value_.has_value(); }
    const Status &status() const { return status_; }
    T &value() { return *value_; }
    const T &value() const { return *value_; }

  private:
    Status status_;
    std::optional<T> value_;
};

}  // namespace nfstdm
