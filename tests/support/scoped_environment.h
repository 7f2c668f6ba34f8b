// SPDX-License-Identifier: Apache-2.0
// An environment variable with another value for the length of a scope.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

class ScopedEnvironment {
  public:
    // Null unsets the variable.
    ScopedEnvironment(const char *name, const char *value) : name_(name) {
        if (const char *old = std::getenv(name)) old_ = old;
        set(value);
    }
    ~ScopedEnvironment() { set(old_ ? old_->c_str() : nullptr); }
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

  private:
    void set(const char *value) const {
        if (value != nullptr) {
            setenv(name_.c_str(), value, 1);
        } else {
            unsetenv(name_.c_str());
        }
    }

    std::string name_;
    std::optional<std::string> old_;
};
