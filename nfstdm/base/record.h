// SPDX-License-Identifier: Apache-2.0
// The records of the library's trace, "[clock],name text": how their texts are put together, and how one who listens to
// them takes them apart again. Both stand here, so that neither is changed alone.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nfstdm {

enum class RecordKind : uint8_t {
    note,           // anything else
    begins,         // an operation begins; the text is what it is about
    succeeded,      // an operation is through
    failed,         // an operation failed with a status; the text says why
    silence,        // a server does not respond; the text is its name
    grace,          // it refuses what it is asked until its grace period is over; the text is its name
    delay,          // it wants to be asked again later; the text is its name
    recovery,       // it does what it is asked again; the text is its name
    configuration,  // what is wrong with the settings a session begins with
    capitals,       // of these: a key that its capital letters make another one, and a mount that is not there for it
};

struct Record {
    RecordKind kind = RecordKind::note;
    std::string name;     // the operation's, or that of the component
    uint32_t status = 0;  // of a failure, as the operation returns it
    std::string text;

    bool operator==(const Record &) const = default;
};

// The operation whose records beside its beginning and end are about the configuration.
inline constexpr std::string_view kOpening = "tdm_init";

// Joins an unknown key and the one that was meant.
inline constexpr std::string_view kKeyInCapitals = ": keys are in lower case, ";

// What stands behind the name.
std::string record_text(const Record &record);

// Takes apart a line without its end. A line that is no record is a note without a name.
Record read_record(std::string_view line);

// Whom a failure concerns, by the words of its reason.
enum class Concern : uint8_t {
    host,      // this host alone: its files, its tslnfstab
    server,    // the server, which was asked as somebody
    mounting,  // the server, which was asked for an export
    security,  // how the server wants to be asked
};
Concern concern_of(std::string_view reason);

// Those words: a server, the call that asks for an export (RFC 1813 section 5.2.1), and a flavour that the server does
// not offer it with.
inline constexpr char kMountCall[] = "MNT";
std::string named_server(std::string_view name);
// The server that a reason names; empty when it names none.
std::string_view server_in(std::string_view reason);
std::string named_security(std::string_view flavour);

}  // namespace nfstdm
