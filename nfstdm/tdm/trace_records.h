// SPDX-License-Identifier: Apache-2.0
// The library's trace, written as the caller writes its own: "[clock],name text".
#pragma once

#include <cstdint>
#include <string_view>

#include "include/tdm.h"
#include "nfstdm/base/trace.h"

namespace nfstdm {

// A record is written while the context traces and the level set for its component is neither 0 nor above the record's.
// The program's listener, if there is one, gets the failures in any case.
class TraceRecords {
  public:
    TraceRecords() = default;
    TraceRecords(const TraceRecords &) = delete;
    TraceRecords &operator=(const TraceRecords &) = delete;

    // Null: nothing is written. The context must outlive the session.
    void set_context(const TdmProductContext *context);

    // event: one of TDM_TRACE_...; level 0 to 4. The mask is a set of TraceComponent bits, 0 = all. False for others.
    bool set(uint32_t event, uint32_t level);

    // For whoever traces by component.
    const Trace &trace() const { return trace_; }

    // For the entry points, whose records carry their function's name.
    bool wants(TraceLevel level) const;
    void write(TraceLevel level, const char *name, std::string_view text) const noexcept;

  private:
    void configure();
    uint32_t level_of(TraceComponent component) const;
    bool lets_through(TraceLevel level, TraceComponent component) const;
    void deliver(TraceLevel level, TraceComponent component, const char *name, std::string_view text) const noexcept;

    const TdmProductContext *context_ = nullptr;
    uint32_t session_level_ = 0;   // TDM_TRACE_KGTDM: entry points and files
    uint32_t protocol_level_ = 0;  // TDM_TRACE_NFCORE: NFS and MOUNT
    uint32_t rpc_level_ = 0;       // TDM_TRACE_SNFCORE: connections
    uint32_t mask_ = 0;
    Trace trace_;
};

}  // namespace nfstdm
