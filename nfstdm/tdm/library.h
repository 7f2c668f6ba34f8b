// SPDX-License-Identifier: Apache-2.0
// What the library holds beside its sessions, and the guard that every entry point goes through.
#pragma once

#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "nfstdm/tdm/public_number.h"
#include "nfstdm/tdm/session.h"
#include "nfstdm/tdm/trace_records.h"

namespace nfstdm {

class Library {
  public:
    static Library &instance();

    Library() = default;
    // A session that is still open then is left as it is, and the caller's trace may be closed already.
    ~Library() { trace_.set_context(nullptr); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    TraceRecords &trace() { return trace_; }

    // The discovery handle has no content: it only tells whether discovery took place.
    void *discovery_handle() { return this; }

    // Opens a session on the tslnfstab of the home in the environment.
    void *open_session();
    // Null when the handle is none of an open session.
    Session *session(const void *handle) const;
    // Takes the session out, so that closing it twice does no harm; null when there is none.
    std::unique_ptr<Session> take_session(const void *handle);

  private:
    void trace_settings(const Result<Tslnfstab> &servers) const;

    TraceRecords trace_;
    std::unordered_map<const void *, std::unique_ptr<Session>> sessions_;
};

// The block size to whose multiples callers pad: 1, or what NFSTDM_BLOCK_SIZE says. valid: false for a setting that is
// no positive number, which is ignored.
struct BlockSize {
    uint32_t bytes = 1;
    bool valid = true;
};
BlockSize block_size();

// Runs the body of an entry point. Nothing is thrown beyond it; entry and status are traced.
template <class Body>
uint32_t guarded(const char *name, std::string_view subject, Body &&body) noexcept {
    const TraceRecords &trace = Library::instance().trace();
    try {
        if (trace.wants(TraceLevel::detail)) trace.write(TraceLevel::detail, name, "begins: " + std::string(subject));
        const Status status = body();
        if (!status.ok() && trace.wants(TraceLevel::failure))
            trace.write(TraceLevel::failure, name,
                        "status " + std::to_string(public_number(status)) + ": " + status.text());
        else if (trace.wants(TraceLevel::detail))
            trace.write(TraceLevel::detail, name, "status " + std::to_string(public_number(status)));
        return public_number(status);
    } catch (const std::bad_alloc &) {
        trace.write(TraceLevel::failure, name, "out of memory");
        return ENOMEM;
    } catch (const std::exception &failure) {
        trace.write(TraceLevel::failure, name, failure.what());
    } catch (...) {
        trace.write(TraceLevel::failure, name, "failed");
    }
    return EIO;
}

// The same for an entry point that needs an open session.
template <class Body>
uint32_t with_session(const char *name, const void *handle, std::string_view subject, Body &&body) noexcept {
    return guarded(name, subject, [&]() -> Status {
        Session *session = Library::instance().session(handle);
        if (session == nullptr) return {EINVAL, "no open session"};
        return body(*session);
    });
}

}  // namespace nfstdm
