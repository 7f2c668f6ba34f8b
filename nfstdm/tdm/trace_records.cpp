// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/trace_records.h"

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

}  // namespace

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
    trace_.set_components(mask_ == 0 ? components : components & mask_);
    trace_.set_threshold(static_cast<TraceLevel>(threshold));
    trace_.set_sink([this](TraceLevel level, TraceComponent component, std::string_view text) {
        if (!lets_through(level, component)) return;
        write(trace_component_name(component).data(), text);
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
    const uint32_t configured = level_of(component);
    return configured != 0 && configured <= static_cast<uint32_t>(level);
}

bool TraceRecords::wants(TraceLevel level) const {
    return context_ != nullptr && context_->trace_on == 1 && trace_.wants(level, TraceComponent::session) &&
           lets_through(level, TraceComponent::session);
}

void TraceRecords::write(const char *name, std::string_view text) const noexcept {
    if (context_ == nullptr || context_->trace_on != 1 || context_->trace_stream == nullptr) return;
    // A line feed that a name brings in does not begin another record.
    char shown[kTextMaximum + 1] = {};
    const std::size_t length = text.copy(shown, kTextMaximum);
    std::replace(shown, shown + length, '\n', '?');
    std::fprintf(context_->trace_stream, "[%u],%s %s\n", clock_value(), name, shown);
    if (length < text.size())
        std::fputs("Above message is truncated since it is greater than SSTMXFNM.\n", context_->trace_stream);
}

}  // namespace nfstdm
