// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/startup.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "include/tdm.h"
#include "platform/caller.h"
#include "platform/home.h"
#include "tslwnfs/client/nfsids.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/config/reading.h"
#include "tslwnfs/frontend/command_line.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/file_run.h"
#include "tslwnfs/frontend/guidance.h"
#include "tslwnfs/frontend/usage.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/streams.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/library_records.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr char kFunction[] = "main";  // under which everything after the command line is traced
constexpr int32_t kDefaultDepth = 50;

template <std::size_t size>
bool look_up_home(const char *marker, char (&home)[size]) {
    const auto found = platform_home(marker);
    std::snprintf(home, size, "%s", found.value_or("").c_str());
    return found.has_value();
}

bool look_up_homes() {
    if (look_up_home("?", tsl_ohome) && (look_up_home("?#", tsl_home) || look_up_home("?=", tsl_home))) return true;
    trace_message(kFunction, Message::home_unknown);
    // The catalogue lies in the home, so the message has no text.
    terminal::note_failure("TESSEL_HOME must name the installation home, which holds bin, lib and dbs");
    return false;
}

// Data in a pipe are of no use between a banner and a verdict. They go through the stream itself: opened by its name,
// a file behind it would lose what stands in it already.
void leave_standard_output_to_dd() {
    constexpr std::array<std::string_view, 3> kNames = {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1"};
    if (offound == 0 || fname1 == nullptr || !is_strict(Strict::options)) return;
    if (std::find(kNames.begin(), kNames.end(), fname1) == kNames.end()) return;
    offound = 0;
    leave_standard_output_to_data();
}

// dd alone has operands that may be absent.
void apply_dd_defaults() {
    if (commandtype != kDd) return;
    leave_standard_output_to_dd();
    if (offound == 0) fname1 = "stdout";
    if (iffound == 0) fname = "stdin";
}

bool check_operands() {
    const Command *command = command_of(commandtype);
    const Required required = command != nullptr ? command->required : Required::nothing;
    const bool wants_first = required == Required::first || required == Required::both;
    const bool wants_second = required == Required::second || required == Required::both;
    if (wants_first && fname == nullptr) {
        if (command->grammar == parse_server) {
            terminal::note_failure("-s SERVER is missing");
        } else {
            ask_for_synopsis(command_word);
        }
        trace_message(kFunction, Message::first_operand_missing);
    } else if (wants_second && fname1 == nullptr) {
        ask_for_synopsis(command_word);
        trace_message(kFunction, Message::second_operand_missing);
    } else {
        return true;
    }
    print_message(Message::command_failed, uint32_t{1});
    return false;
}

void set_depth() {
    const bool given = commandtype == kFind && has_option(kFindMaxdepth);
    maxdepth = given ? find_maxdepth_n : kDefaultDepth;
}

// A mistyped mount point makes a local path.
void note_mount_points() {
    const Command *command = command_of(commandtype);
    if (!terminal::is_open() || command == nullptr || command->execution != Execution::on_files) return;
    terminal::note_mount_points(configured_mount_points());
}

bool succeeded(uint32_t status, MessageOf<uint32_t> failure) {
    if (status == 0) return true;
    trace_message(kFunction, failure, status);
    return false;
}

void set_library_trace() {
    if (octx.trace_on != 1) return;
    tdm_trace(TDM_TRACE_KGTDM, kgtdm_trace);
    tdm_trace(TDM_TRACE_NFCORE, nfcore_trace);
    tdm_trace(TDM_TRACE_SNFCORE, snfcore_trace);
    tdm_trace(TDM_TRACE_NFCORE_MASK, static_cast<uint32_t>(nfcore_mask));
}

bool open_session() {
    uint32_t version = TDM_INTERFACE_VERSION, extra = 0;
    void *handle = nullptr;
    char description[TDM_TEXT_SIZE] = {};
    if (!succeeded(tdm_discover(&version, &handle, description, sizeof description, &pbsz, &extra),
                   Message::discover_failed)) {
        return false;
    }
    // The record of a discovery is a head without a text, and so without an end of line.
    tslwnfswrf(3, kFunction, "%s", "");
    if (!succeeded(tdm_registerthread(handle, 0, 1, 0, "tslwnfs", 0), Message::thread_registration_failed)) {
        return false;
    }
    set_library_trace();
    return succeeded(tdm_init(handle, &ctx), Message::session_failed);
}

// Everything between the command line and the end of the storage session.
int run_session() {
    // A trace at the terminal tells it all.
    if (octx.trace_to_stderr == 1) terminal::close();
    if (!look_up_homes()) return 1;
    terminal::listen_to_library();
    tdm_tslinit(&octx);
    if (octx.trace_on == 1) log_enabled = trace_enabled = 1;
    apply_dd_defaults();
    note_mount_points();
    if (!check_operands()) return 1;
    set_depth();
    if (!open_session()) return 1;
    if (id_enabled == 1) nfscred();
    if (redirect_out == 1) static_cast<void>(close_log());
    const uint32_t result = commandtype != kNoCommand ? exec_command(fname, fname1) : 0;
    tdm_fini(ctx);
    await_workers();
    return static_cast<int>(result);
}

int run_words(std::span<char *> words) {
    read_strictness();
    if (UserInTSLDBA() == 0) {
        static_cast<void>(std::fputs(message_text(Message::not_administrator).c_str(), stderr));
        return 1;
    }
    switch (get_options(words)) {
        case ParseOutcome::accepted:
            return run_session();
        case ParseOutcome::usage:
            print_usage();
            break;
        case ParseOutcome::help:
            print_help();
            break;
        case ParseOutcome::dd_help:
            print_dd_help();
            break;
        case ParseOutcome::refused:
            break;
    }
    return 1;
}

}  // namespace

int run_utility(std::span<char *> words) {
    const int status = run_words(words);
    // What has no verdict of its own is told here.
    if (status != 0) {
        terminal::tell_reason();
    } else {
        terminal::tell_warning();
    }
    tell_synopsis();
    return status;
}
