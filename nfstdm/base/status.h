// SPDX-License-Identifier: Apache-2.0
// The result of an operation inside the library: success, or a number with the words that explain it.
#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace nfstdm {

// number() is what the storage interface returns: an errno where one fits. text() says what failed, on which server; it
// is built where the failure happens and extended on the way up.
class [[nodiscard]] Status {
  public:
    Status() = default;  // success
    Status(uint32_t number, std::string text) : number_(number), text_(std::move(text)) {}

    bool ok() const { return number_ == 0; }
    uint32_t number() const { return number_; }
    const std::string &text() const { return text_; }

    // The same failure seen from further up: "context: text".
    Status in(const std::string &context) const {
        if (ok()) return {};
        return {number_, text_.empty() ? context : context + ": " + text_};
    }

  private:
    uint32_t number_ = 0;
    std::string text_;
};

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
