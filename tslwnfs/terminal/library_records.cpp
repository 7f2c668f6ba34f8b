// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/library_records.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>

#include "include/tdm.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

TdmFailureListener *tdm_failure_listener = nullptr;

namespace terminal {
namespace {

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

void listen_to_library() {
    tdm_failure_listener = is_open() ? +[](const char *record) { take_library_record(record); } : nullptr;
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
