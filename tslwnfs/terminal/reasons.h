// SPDX-License-Identifier: Apache-2.0
// Why the command at hand failed. What goes wrong is noted while the command runs, and told to a person once the
// command as a whole has failed; much of what goes wrong on the way does no harm.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace terminal {

struct Reason {
    std::string text;
    uint32_t status = 0;              // the library's
    bool is_missing_locally = false;  // no such file
};

// All that is noted of the command at hand.
struct Notes {
    Reason from_library;  // what the library said since the last note
    Reason failure;       // the first one
    Reason remark;        // the last one
    std::string hint;     // what may be behind it
    std::string aftermath;
};

// Gives what was noted and forgets it; add_notes() notes it in another process, behind what was noted there.
Notes take_notes();
void add_notes(Notes more);

// The storage library failed with a status and says why. It stands for what is noted next as the library's.
void note_library_reason(uint32_t status, std::string_view why);

// The same, as a call that failed gave it back: cut to the room for it, so that the record of the same failure is
// better where there is one. Empty when the library did not say.
void note_library_text(uint32_t status, std::string_view why);

// While one lives, what the library says is not noted: it is asked for what a person might want to know besides.
class AskedBesides {
  public:
    AskedBesides();
    ~AskedBesides();
    AskedBesides(const AskedBesides &) = delete;
    AskedBesides &operator=(const AskedBesides &) = delete;
};

// Something failed, and this says it all. The first such failure is the one that is told.
void note_failure(std::string_view what);
// Whether one is noted.
bool has_failure();
// A call of the system's failed: what, the error number, 0 when it left none, and the path it was about, if it is
// known: then it is told who has the permission that was missing.
void note_system_failure(std::string_view what, int error, std::string_view path = {});
// The storage library failed, if it gave a reason: that is told. Without one, what is a remark.
void note_library_failure(std::string_view what);
// Of no consequence as a rule: the last one is told if nothing else failed. The library's reason is better, if it gave
// one, than what and the error number.
void note_remark(std::string_view what, int error = 0);

// What may be behind a failure of what is at hand, if it fails: told with its reason.
void note_hint(std::string_view what);

// What the failure leaves behind: a line of its own behind the reason.
void note_aftermath(std::string_view what);

// Where the servers are: told with a failure at a local path that does not exist. At most a few.
void note_mount_points(const std::vector<std::string> &mount_points);

// Something is wrong with tslnfstab: told once, after the first failure.
void note_configuration_trouble(std::string_view what);

// Tells at once what the library failed at, for a command that goes on all the same.
void warn_of_library_failure(std::string_view what);

// The command failed: tells the reason, if there is one, in one line, and forgets everything.
void tell_reason();
// The command calls itself successful: tells as a warning what failed on the way, remarks aside, and forgets it.
void tell_warning();
// Tells at once what failed, as a warning with what comes of it, and forgets it.
void tell_consequence(std::string_view consequence);

}  // namespace terminal
