// SPDX-License-Identifier: Apache-2.0
// The library's own trace: records by level and component, handed to a sink as finished text. A record that nobody
// wants costs one comparison; its text is never built.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace nfstdm {

// The greater the level, the graver the record.
enum class TraceLevel : uint32_t { detail = 1, notice = 2, failure = 3 };

enum class TraceComponent : uint32_t { rpc = 1, mount = 2, nfs = 4, files = 8, session = 16 };

constexpr uint32_t kAllTraceComponents = 0xFFFFFFFF;

// The name a record carries, for instance "rpc".
constexpr std::string_view trace_component_name(TraceComponent component) {
    switch (component) {
        case TraceComponent::rpc:
            return "rpc";
        case TraceComponent::mount:
            return "mount";
        case TraceComponent::nfs:
            return "nfs";
        case TraceComponent::files:
            return "files";
        case TraceComponent::session:
            return "session";
    }
    return "unknown";
}

// Shared by reference: whoever is given a Trace keeps the reference, so it must outlive them; what it lets through may
// change at any time.
class Trace {
  public:
    using Sink = std::function<void(TraceLevel level, TraceComponent component, std::string_view text)>;

    Trace() = default;  // off
    explicit Trace(Sink sink, TraceLevel threshold = TraceLevel::detail, uint32_t components = kAllTraceComponents)
        : sink_(std::move(sink)), threshold_(threshold), components_(components) {}

    void set_sink(Sink sink) { sink_ = std::move(sink); }
    void set_threshold(TraceLevel threshold) { threshold_ = threshold; }
    void set_components(uint32_t mask) { components_ = mask; }

    bool wants(TraceLevel level, TraceComponent component) const {
        return sink_ && level >= threshold_ && (components_ & static_cast<uint32_t>(component)) != 0;
    }

    // text() gives the record's text, without a line end; it is called only when the record is wanted.
    template <class Text>
    void write(TraceLevel level, TraceComponent component, Text &&text) const {
        if (wants(level, component)) sink_(level, component, std::forward<Text>(text)());
    }

  private:
    Sink sink_;
    TraceLevel threshold_ = TraceLevel::detail;
    uint32_t components_ = kAllTraceComponents;
};

}  // namespace nfstdm
