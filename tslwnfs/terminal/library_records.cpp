// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/library_records.h"

#include <charconv>
#include <cstdio>
#include <string>

#include "platform/stream.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace terminal {
namespace {

struct Listener {
    TdmProductContext context = {};
    const TdmProductContext *passed_on_to = nullptr;
    Stream stream;
    std::string line;

    Listener() = default;
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;
    ~Listener() {
        context.trace_on = 0;
        context.trace_stream = nullptr;
    }
};

Listener &listener() {
    static Listener one;
    return one;
}

void pass_on(std::string_view bytes) {
    const TdmProductContext *target = listener().passed_on_to;
    if (target->trace_on != 1 || target->trace_stream == nullptr) return;
    static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), target->trace_stream));
    static_cast<void>(std::fflush(target->trace_stream));
}

ssize_t take_bytes(void *, const char *data, std::size_t size) {
    const std::string_view bytes(data, size);
    pass_on(bytes);
    std::string &line = listener().line;
    for (const char byte : bytes) {
        if (byte != '\n') {
            line += byte;
            continue;
        }
        take_library_record(line);
        line.clear();
    }
    return static_cast<ssize_t>(size);
}

// A record that tells how it is going with a server, worth being read at once.
bool is_about_silence(std::string_view name, std::string_view text) {
    return name == "rpc" && text.starts_with("server ") &&
           (text.ends_with(" not responding, still trying") || text.ends_with(" ok again"));
}

// A mount that is not there for a capital letter: its paths are local, and nothing fails that would tell.
bool is_about_capitals(std::string_view text) {
    return text.find(": keys are in lower case, ") != std::string_view::npos;
}

}  // namespace

TdmProductContext *listen_to_library(TdmProductContext &context) {
    if (!is_open()) return &context;
    Listener &it = listener();
    const cookie_io_functions_t functions = {nullptr, take_bytes, nullptr, nullptr};
    it.stream.reset(fopencookie(nullptr, "w", functions));
    if (it.stream == nullptr) return &context;
    std::setvbuf(it.stream.get(), nullptr, _IOLBF, BUFSIZ);
    it.passed_on_to = &context;
    it.context.trace_on = 1;
    it.context.trace_stream = it.stream.get();
    return &it.context;
}

void take_library_record(std::string_view record) {
    const std::size_t comma = record.find("],");
    if (comma == std::string_view::npos) return;
    record.remove_prefix(comma + 2);
    const std::string_view name = record.substr(0, record.find(' '));
    std::string_view text = record.substr(std::min(record.size(), name.size() + 1));
    if (is_about_silence(name, text)) return say(text);

    constexpr std::string_view kStatus = "status ";
    if (!text.starts_with(kStatus)) {
        if (name == "tdm_init" && is_about_capitals(text)) return say("warning: " + std::string(text));
        if (name == "tdm_init" && !text.starts_with("begins")) note_configuration_trouble(text);
        return;
    }
    text.remove_prefix(kStatus.size());
    uint32_t status = 0;
    const auto number = std::from_chars(text.data(), text.data() + text.size(), status);
    text.remove_prefix(static_cast<std::size_t>(number.ptr - text.data()));
    if (status != 0 && text.starts_with(": ")) note_library_reason(status, text.substr(2));
}

}  // namespace terminal
