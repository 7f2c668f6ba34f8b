// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/library_records.h"

#include <string>

#include "include/tdm.h"
#include "nfstdm/base/record.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

TdmFailureListener *tdm_failure_listener = nullptr;

namespace terminal {

using nfstdm::RecordKind;

void listen_to_library() {
    tdm_failure_listener = is_open() ? +[](const char *record) { take_library_record(record); } : nullptr;
}

void take_library_record(std::string_view line) {
    const nfstdm::Record record = nfstdm::read_record(line);
    switch (record.kind) {
        case RecordKind::failed:
            return note_library_reason(record.status, record.text);
        // Worth being read at once: whoever waits wants to know for what.
        case RecordKind::silence:
        case RecordKind::grace:
        case RecordKind::delay:
        case RecordKind::recovery:
            return say(record_text(record), When::at_once);
        // A mount that is not there: its paths are local, and nothing fails that would tell.
        case RecordKind::capitals:
            return say("warning: " + record.text);
        case RecordKind::configuration:
            return note_configuration_trouble(record.text);
        case RecordKind::begins:
        case RecordKind::succeeded:
        case RecordKind::note:
            return;
    }
}

}  // namespace terminal
