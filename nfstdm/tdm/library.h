// SPDX-License-Identifier: Apache-2.0
// What the library holds beside its sessions, and the guard that every entry point goes through.
#pragma once

#include <pthread.h>

#include <atomic>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "nfstdm/base/record.h"
#include "nfstdm/tdm/public_number.h"
#include "nfstdm/tdm/session.h"
#include "nfstdm/tdm/trace_records.h"

namespace nfstdm {

class Library {
  public:
    static Library &instance();

    Library();
    // A session that is still open then is left as it is, and the caller's trace may be closed already.
    ~Library();
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    TraceRecords &trace() { return trace_; }

    // A call's stay in the library. As long as a session is open only the thread that opened it gets in; else one
    // thread at a time.
    class Stay {
      public:
        explicit Stay(Library &library) : library_(library), admitted_(library.enter()) {}
        ~Stay() {
            if (admitted_) library_.leave();
        }
        Stay(const Stay &) = delete;
        Stay &operator=(const Stay &) = delete;
        explicit operator bool() const { return admitted_; }

      private:
        Library &library_;
        const bool admitted_;
    };

    // The discovery handle has no content: it only tells whether discovery took place.
    void *discovery_handle() { return this; }

    // Opens a session on the tslnfstab of the home in the environment.
    void *open_session();
    // Null when the handle is none of an open session. In a forked child the parent's handles lead to sessions of the
    // child's own.
    Session *session(const void *handle);
    // Takes the session out, so that closing it twice does no harm; null when there is none.
    std::unique_ptr<Session> take_session(const void *handle);

  private:
    bool enter() noexcept;
    void leave() noexcept;
    void replace_inherited_sessions();
    void trace_settings(const Result<Tslnfstab> &servers) const;

    TraceRecords trace_;
    std::unordered_map<const void *, std::unique_ptr<Session>> sessions_;  // by the handle given out
    std::atomic<pthread_t> owner_{};                                       // 0: none
    std::atomic<bool> inherited_ = false;                                  // the sessions are those of the parent
};

// The block size to whose multiples callers pad: 1, or what NFSTDM_BLOCK_SIZE says. valid: false for a setting that is
// no positive number, which is ignored.
struct BlockSize {
    uint32_t bytes = 1;
    bool valid = true;
};
BlockSize block_size();

// What another thread gets than the one that a session is open in. Nothing is traced for it: the trace is not its own.
constexpr uint32_t kOtherThread = EPERM;

// Asked again and again as time goes by, for somebody who watches: the trace does not depend on that.
constexpr std::string_view kUntracedEntry = "tdm_written";

// Runs the body of an entry point. Nothing is thrown beyond it; entry and status are traced.
template <class Body>
uint32_t guarded(const char *name, std::string_view subject, Body &&body) noexcept {
    const Library::Stay stay(Library::instance());
    if (!stay) return kOtherThread;
    const TraceRecords &trace = Library::instance().trace();
    const bool traced = name != kUntracedEntry;
    try {
        if (traced && trace.wants(TraceLevel::detail))
            trace.write(TraceLevel::detail, name, record_text({RecordKind::begins, name, 0, std::string(subject)}));
        const Status status = body();
        if (!traced) return public_number(status);
        if (!status.ok() && trace.wants(TraceLevel::failure))
            trace.write(TraceLevel::failure, name,
                        record_text({RecordKind::failed, name, public_number(status), status.text()}));
        else if (trace.wants(TraceLevel::detail))
            trace.write(TraceLevel::detail, name, record_text({RecordKind::succeeded, name, 0, {}}));
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
