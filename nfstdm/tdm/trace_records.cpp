// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/trace_records.h"

// Programs need not define it.
#pragma weak tdm_failure_listener

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace nfstdm {
namespace {

constexpr std::size_t kTextMaximum = 511;  // characters of a record's text
constexpr uint32_t kLevelMaximum = 4;

uint32_t clock_value() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

// Whether somebody listens to records of a level beside the trace.
bool is_heard(TraceLevel level) {
    return level >= TraceLevel::failure && &tdm_failure_listener != nullptr && tdm_failure_listener != nullptr;
}

}  // namespace

void TraceRecords::set_context(const TdmProductContext *context) {
    context_ = context;
    configure();
}

bool TraceRecords::set(uint32_t event, uint32_t level) {
    if (event != TDM_TRACE_NFCORE_MASK && level > kLevelMaximum) return false;
    switch (event) {
        case TDM_TRACE_KGTDM:
            session_level_ = level;
            break;
        case TDM_TRACE_NFCORE:
            protocol_level_ = level;
            break;
        case TDM_TRACE_SNFCORE:
            rpc_level_ = level;
            break;
        case TDM_TRACE_NFCORE_MASK:
            mask_ = level;
            break;
        default:
            return false;
    }
    configure();
    return true;
}

// Tells the trace the least that can get through, so that other records are never built; each record is then judged by
// its own component's level.
void TraceRecords::configure() {
    uint32_t components = 0;
    uint32_t threshold = kLevelMaximum;
    for (const auto component : {TraceComponent::rpc, TraceComponent::mount, TraceComponent::nfs, TraceComponent::files,
                                 TraceComponent::session}) {
        if (level_of(component) == 0) continue;
        components |= static_cast<uint32_t>(component);
        threshold = std::min(threshold, level_of(component));
    }
    if (mask_ != 0) components &= mask_;
    if (is_heard(TraceLevel::failure)) {
        components = kAllTraceComponents;
        threshold = std::min(threshold, static_cast<uint32_t>(TraceLevel::failure));
    }
    trace_.set_components(components);
    trace_.set_threshold(static_cast<TraceLevel>(threshold));
    trace_.set_sink([this](TraceLevel level, TraceComponent component, std::string_view text) {
        deliver(level, component, trace_component_name(component).data(), text);
        // Whoever waits for a server that does not answer wants to read so while waiting.
        if (level >= TraceLevel::notice && context_ != nullptr && context_->trace_stream != nullptr)
            static_cast<void>(std::fflush(context_->trace_stream));
    });
}

uint32_t TraceRecords::level_of(TraceComponent component) const {
    switch (component) {
        case TraceComponent::rpc:
            return rpc_level_;
        case TraceComponent::mount:
        case TraceComponent::nfs:
            return protocol_level_;
        case TraceComponent::files:
        case TraceComponent::session:
            break;
    }
    return session_level_;
}

bool TraceRecords::lets_through(TraceLevel level, TraceComponent component) const {
    if (context_ == nullptr || context_->trace_on != 1 || context_->trace_stream == nullptr) return false;
    if (mask_ != 0 && (mask_ & static_cast<uint32_t>(component)) == 0) return false;
    const uint32_t configured = level_of(component);
    return configured != 0 && configured <= static_cast<uint32_t>(level);
}

bool TraceRecords::wants(TraceLevel level) const {
    return lets_through(level, TraceComponent::session) || is_heard(level);
}

void TraceRecords::write(TraceLevel level, const char *name, std::string_view text) const noexcept {
    deliver(level, TraceComponent::session, name, text);
}

void TraceRecords::deliver(TraceLevel level, TraceComponent component, const char *name,
                           std::string_view text) const noexcept {
    // A line feed that a name brings in does not begin another record.
    char shown[kTextMaximum + 1] = {};
    const std::size_t length = text.copy(shown, kTextMaximum);
    std::replace(shown, shown + length, '\n', '?');
    const uint32_t clock = clock_value();
    if (lets_through(level, component)) {
        std::fprintf(context_->trace_stream, "[%u],%s %s\n", clock, name, shown);
        if (length < text.size())
            std::fputs("Above message is truncated since it is greater than SSTMXFNM.\n", context_->trace_stream);
    }
    if (is_heard(level)) {
        char record[kTextMaximum + 64];
        std::snprintf(record, sizeof record, "[%u],%s %s", clock, name, shown);
        tdm_failure_listener(record);
    }
}

}  // namespace nfstdm
