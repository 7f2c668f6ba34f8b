// SPDX-License-Identifier: Apache-2.0
// nfsstat3 (RFC 1813 section 2.6): its names, and what an errno becomes.
#pragma once

#include <optional>
#include <string_view>
#include <utility>

#include "nfstdm/nfs3/constants.h"

namespace loopnfsd {

using nfstdm::nfs3::NfsStatus;

// The status a failed system call is answered with. An errno without a counterpart is NFS3ERR_IO.
NfsStatus status_of_errno(int number);

// "NOSPC" for NFS3ERR_NOSPC; "?" for a number that is none.
std::string_view status_name(NfsStatus status);

// The reverse, in any case, with or without "NFS3ERR_".
std::optional<NfsStatus> status_by_name(std::string_view name);

// A value, or the status that says why there is none.
template <class T>
class [[nodiscard]] Outcome {
  public:
    Outcome(T value) : value_(std::move(value)) {}    // NOLINT: a value is an outcome
    Outcome(NfsStatus failure) : status_(failure) {}  // NOLINT: so is a failure; never ok

    bool ok() const { return value_.has_value(); }
    NfsStatus status() const { return status_; }
    T &operator*() { return *value_; }
    const T &operator*() const { return *value_; }
    T *operator->() { return &*value_; }
    const T *operator->() const { return &*value_; }

  private:
    NfsStatus status_ = NfsStatus::ok;
    std::optional<T> value_;
};

}  // namespace loopnfsd
