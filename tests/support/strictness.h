// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "tests/support/scoped_environment.h"
#include "tslwnfs/options/strict.h"

// TSLWNFS_STRICT as a run finds it, for the length of a scope.
class Strictness {
  public:
    explicit Strictness(const char *words) {
        variable_.emplace("TSLWNFS_STRICT", words);
        read_strictness();
    }
    ~Strictness() {
        variable_.reset();
        read_strictness();
    }
    Strictness(const Strictness &) = delete;
    Strictness &operator=(const Strictness &) = delete;

  private:
    std::optional<ScopedEnvironment> variable_;
};
