// SPDX-License-Identifier: Apache-2.0
// dd: a copy in blocks, from an offset to an offset, with standard input and output in place of either file.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>

#include "include/tdm.h"
#include "platform/write_errors.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/dd_batch.h"
#include "tslwnfs/commands/dd_input.h"
#include "tslwnfs/commands/dd_output.h"
#include "tslwnfs/commands/dd_records.h"
#include "tslwnfs/commands/destination_file.h"
#include "tslwnfs/commands/file_transfer.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/identify.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr const char *kDdFunction = kDdRecords.function;
constexpr int32_t kDefaultBlock = 1024;  // bytes

// What one dd has open.
struct Run {
    RequestSlots requests;
    SourceFile source;  // without a path when standard input is read
    DestinationFile destination;
    uint64_t size = 0;       // bytes of the input: the file's, or what the user said; 0 until the end has come
    bool until_end = false;  // a local file whose size neither it nor the user tells
    uint64_t start = 0;      // where a local input stands, in bytes
};

void announce_standard_streams() {
    if (iffound == 0) print("reading from standard input \n");
    if (offound == 0) print("redirecting to stdout\n");
}

bool refuse_count() {
    trace_message(kDdFunction, Message::count_below_block, IBS);
    COUNT = 0;
    return false;
}

bool refuse_skip() {
    trace_message(kDdFunction, Message::skip_beyond_input, SKIP);
    return false;
}

// Numbers of the command line wrap at 32 bits; what became negative is refused before anything is opened.
bool settle_numbers() {
    if (IBS == 0) IBS = kDefaultBlock;
    if (OBS == 0) OBS = kDefaultBlock;
    if (COUNT < 0) return refuse_count();
    if (SKIP < 0) return refuse_skip();
    if (IBS > 0 && OBS > 0 && SEEK >= 0) return true;
    trace_failure(kDdFunction, "block sizes and offsets must not be negative: ibs %d, obs %d, seek %d", IBS, OBS, SEEK);
    return false;
}

// A stream that cannot be positioned is used from where it stands.
bool position(FILE *stream, const PathBuffer &path, int32_t offset) {
    if (fseeko(stream, offset, SEEK_SET) == 0) return true;
    trace_message(kDdFunction, Message::positioning_failed, path.c_str(), offset);
    return false;
}

// What a question was answered.
struct Answered {
    std::optional<uint64_t> size;  // something that is no number counts as 0, and nothing at all as no answer
    bool is_number = false;        // a line of nothing but a number
};

// Reads a number and the line feed behind it, which is not part of the data.
Answered read_size() {
    int character = std::getchar();
    while (character != EOF && std::isspace(character) != 0) {
        character = std::getchar();
    }
    if (character == EOF) return {std::nullopt, true};
    uint64_t size = 0;
    const bool begins_with_digit = character >= '0' && character <= '9';
    while (character >= '0' && character <= '9') {
        const auto digit = static_cast<uint64_t>(character - '0');
        size = size > (UINT64_MAX - digit) / 10 ? UINT64_MAX : size * 10 + digit;
        character = std::getchar();
    }
    const bool ends = character == EOF || std::isspace(character) != 0;
    if (character != EOF && character != '\n') std::ungetc(character, stdin);
    return {size, begins_with_digit && ends};
}

// True when a file is what standard input is, too: an answer would be taken out of the data.
bool is_standard_input(const SourceFile &source) {
    struct stat file, standard;
    return source.stream != nullptr && fstat(fileno(source.stream.get()), &file) == 0 &&
           fstat(STDIN_FILENO, &standard) == 0 && file.st_dev == standard.st_dev && file.st_ino == standard.st_ino;
}

// A question, hence on standard output in any case. A local file that was named needs no answer: it is read until its
// end then.
// What a program feeds into standard input does not answer by chance: data that begin with no number are not taken for
// an answer.
bool ask_size(Run &run) {
    lwrf("enter the maximum  file size You want \n");
    flush_output();
    const bool is_data = iffound != 0 && is_standard_input(run.source);
    const Answered answer = is_data ? Answered{std::nullopt, true} : read_size();
    const bool needs_answer = iffound == 0 || run.source.until_end;
    if (needs_answer && !answer.is_number && isatty(STDIN_FILENO) == 0) {
        trace_failure(kDdFunction,
                      "standard input begins with no line that tells its size in bytes; "
                      "TSLWNFS_STRICT=options reads it to its end without asking");
        return false;
    }
    print("Enter Ctrl+c after input completes\n");
    run.size = answer.size.value_or(0);
    run.until_end = !answer.size && run.source.until_end;
    return true;
}

// Standard input that no person types at has its end for an answer, for those who want it strict. Where standard output
// is for the data nobody can be asked.
bool is_read_to_end() {
    return iffound == 0 && is_strict(Strict::options) && (isatty(STDIN_FILENO) == 0 || standard_output_is_for_data());
}

bool open_input_file(const Operand &input, Run &run) {
    if (!resolve_operand(kDdFunction, input, run.source.path)) return false;
    if (!is_readable_source(run.source.path, input, kDdRecords)) return false;
    if (!open_source(run.source, kDdRecords)) return false;
    run.size = run.source.size;
    if (run.source.local && SKIP != 0 && position(run.source.stream.get(), run.source.path, SKIP)) {
        run.start = static_cast<uint64_t>(SKIP);
    }
    return true;
}

bool open_input(const Operand &input, Run &run) {
    if (iffound == 0) {
        run.source.local = true;
    } else if (!open_input_file(input, run)) {
        return false;
    }
    if (is_read_to_end()) {
        run.until_end = true;
    } else if (run.size == 0 && standard_output_is_for_data()) {
        run.until_end = run.source.until_end;
    } else if (run.size == 0 && !ask_size(run)) {
        return false;
    }
    // Refused here, before the output loses what it holds.
    if (COUNT != 0 && COUNT < IBS) return refuse_count();
    if (!run.source.local && SKIP != 0 && static_cast<uint64_t>(SKIP) >= run.size) return refuse_skip();
    return true;
}

// The size a remote output gets before the data: what will be written, padding included.
uint64_t output_size(const Run &run) {
    const uint64_t padding = run.source.padding > UINT64_MAX - run.size ? 0 : run.source.padding;
    const uint64_t input = run.size + padding;
    const auto seek = static_cast<uint64_t>(SEEK);
    const auto skip = static_cast<uint64_t>(SKIP);
    const uint64_t end = seek > UINT64_MAX - input ? UINT64_MAX : seek + input;
    return end - std::min(end, skip);
}

bool resize_output(Run &run, uint32_t reidentified_level, const char *reidentified) {
    if (!resize_destination(run.destination, output_size(run), kDdRecords)) return false;
    TdmFileInfo &info = run.destination.info;
    const uint32_t status = tdm_reidentify(ctx, info.file, 0, &info);
    if (status != 0) {
        trace_message(kDdFunction, Message::reidentify_failed, status);
        return false;
    }
    tslwnfswrf(reidentified_level, kDdFunction, "%s", reidentified);
    return true;
}

bool open_local_output(Run &run) {
    if (open_local_destination(run.destination, kDdRecords) != Opened::ready) return false;
    if (SEEK != 0) static_cast<void>(position(run.destination.stream.get(), run.destination.path, SEEK));
    return true;
}

bool open_output_file(Run &run) {
    DestinationFile &destination = run.destination;
    const Identification found = identify(destination.path, destination.info);
    const bool exists = found.status == 0 && found.code == TDM_IDENTIFIED_REMOTE;
    if (!exists) trace_message(kDdFunction, Message::identify_returned, destination.path.c_str(), found.code);
    if (iffound != 0 && is_source_itself(run.source, destination, exists, kDdRecords)) return false;
    if (exists) {
        return confirm_overwrite(destination.path) && resize_output(run, 1, "tdm_reidentify successful:dest\n");
    }
    const uint64_t size = found.failed() ? 0 : run.size + run.source.padding;
    if (!create_destination(destination, size, kDdRecords)) return open_local_output(run);
    return resize_output(run, 3, "tdm_reidentify successful:dest \n");
}

bool open_output(const Operand &input, const Operand &output, Run &run) {
    if (offound == 0) return true;
    PathBuffer &path = run.destination.path;
    if (!resolve_operand(kDdFunction, output, path)) return false;
    AttrResult attributes;
    const Kind kind = destination_kind(path, attributes);
    if (kind == Kind::special && !is_stream_allowed(path, kind, attributes, output, kDdRecords)) return false;
    if (kind == Kind::directory) {
        const std::string_view named = iffound == 0 ? std::string_view(input.text()) : run.source.path.view();
        if (!extend_path(kDdFunction, path, "/") || !extend_path(kDdFunction, path, base_name(named))) return false;
    }
    return open_output_file(run);
}

// What is being written: a file, or standard output.
struct Course {
    std::optional<UnfinishedDestination> file;
    std::optional<terminal::Progress> progress;  // of standard output

    void at(uint64_t end) {
        if (file) file->at(end);
        if (progress) progress->at(end - static_cast<uint64_t>(SEEK));
    }
};

bool copy_remote_input(DdInput &input, DdOutput &output, Course &course, bool with_padding) {
    while (!input.at_end()) {
        course.at(output.end());
        if (!output.write(input.read_remote(with_padding))) return false;
    }
    return output.finish();
}

bool copy_stream(DdInput &input, DdOutput &output, Course &course) {
    while (!input.at_end()) {
        course.at(output.end());
        const std::span<std::byte> buffer = input.buffer();
        const DdInput::Block block = input.read_stream(buffer);
        if (block.length != 0 && block.length != buffer.size()) {
            print("warning :: ibs-%d & len-%d differ\n", IBS, static_cast<int>(block.length));
        }
        if (!output.write(buffer.first(block.wanted))) return false;
    }
    return output.finish();
}

bool is_pipe(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

// Nothing is shown between the data that go to a terminal, nor between what a person types. A line that the copy prints
// takes the place of what is shown on the same terminal; in a pipe that may end there nobody would know.
bool shows_progress(bool prints) {
    if (iffound == 0 && isatty(STDIN_FILENO) != 0) return false;
    if (offound == 0)
        return terminal::leads_to_file(stdout) || (standard_output_is_for_data() && isatty(STDOUT_FILENO) == 0);
    return !prints || !is_pipe(output_stream());
}

void show_progress(const Run &run, bool prints, const DdInput &input, Course &course) {
    if (!shows_progress(prints)) return;
    const std::string_view name = iffound != 0 ? run.source.path.view() : run.destination.path.view();
    const uint64_t total = input.is_endless() ? 0 : input.left();
    if (course.file)
        course.file->show_progress(name, static_cast<uint64_t>(SEEK), total);
    else
        course.progress.emplace(name.empty() ? "stdin" : name, total);
}

// Has the server copy from one of its files into another as far as it likes, and gives how many bytes it has. What of
// the input is padding is nothing that a server has.
uint64_t copy_remotely(const Run &run, DdInput &input, uint64_t seek) {
    const uint64_t start = input.offset();
    while (run.source.padding == 0 && !input.at_end()) {
        const ServerCopyRange range{run.source.info.file, input.offset(), run.destination.info.file,
                                    seek + (input.offset() - start), input.left()};
        uint64_t copied = 0;
        if (copy_by_server(range, copied) != 0 || copied == 0 || copied > range.count) break;
        input.pass(copied);
    }
    return input.offset() - start;
}

// Local data goes to a server in batches; everything else goes block by block.
bool copy_blocks(Run &run, DdInput &input, Course &course) {
    const auto input_block = static_cast<std::size_t>(IBS);
    const auto seek = static_cast<uint64_t>(SEEK);
    const bool to_server = offound != 0 && !run.destination.local;
    const bool in_batches = to_server && !input.is_remote();
    show_progress(run, in_batches, input, course);
    if (in_batches) {
        DdBatch batch(run.destination.info.file, seek, run.requests);
        return batch.allocate(input_block) && batch.copy(input, *course.file);
    }
    const uint64_t copied = to_server ? copy_remotely(run, input, seek) : 0;
    DdOutput output(offound == 0 ? nullptr : &run.destination, seek + copied, run.requests);
    if (!output.allocate(static_cast<std::size_t>(OBS), input_block)) return false;
    return input.is_remote() ? copy_remote_input(input, output, course, to_server) : copy_stream(input, output, course);
}

bool copy_data(Run &run, Course &course) {
    std::optional<InterruptAsEndOfInput> interrupt;
    if (iffound == 0 && !run.until_end) interrupt.emplace();
    const uint64_t size = run.until_end ? DdInput::kUntilEnd : run.size;
    DdInput input(iffound == 0 ? nullptr : &run.source, size, run.start, run.requests);
    if (!input.allocate(static_cast<std::size_t>(IBS))) return false;
    if (SKIP != 0 && (iffound == 0 || input.is_remote())) input.discard(static_cast<uint64_t>(SKIP));
    if (input.is_remote()) SKIP = 0;
    if (COUNT != 0) {
        input.limit(static_cast<uint64_t>(COUNT));
        COUNT = 0;
    }
    const uint64_t start = input.offset();
    if (!copy_blocks(run, input, course)) return false;
    if (course.file) course.file->wait_for_server(static_cast<uint64_t>(SEEK) + (input.offset() - start));
    course.progress.reset();
    run.size = input.size();
    return true;
}

// 0 when only the end of the input will tell.
uint64_t size_to_write(const Run &run) {
    if (run.until_end) return 0;
    const auto count = static_cast<uint64_t>(COUNT);
    const uint64_t left = run.size - std::min(run.size, static_cast<uint64_t>(SKIP));
    return static_cast<uint64_t>(SEEK) + (COUNT == 0 ? left : std::min(left, count));
}

bool finish_output(Run &run) {
    if (offound == 0) {
        if (flush_stream(stdout)) return true;
        trace_unwritten(kDdFunction, "stdout");
        return false;
    }
    return close_streams(run.source, run.destination, kDdRecords);
}

}  // namespace

uint32_t ddfile(const Operand &input, const Operand &output) {
    if (input.text() == nullptr) {
        trace_message(kDdFunction, Message::first_operand_missing);
        return 1;
    }
    announce_standard_streams();
    Run run;
    if (!run.requests.allocate(kDdFunction)) return 1;
    if (!settle_numbers() || !open_input(input, run) || !open_output(input, output, run)) return 1;
    bsize = IBS;
    Course course;
    if (offound != 0) course.file.emplace(run.destination, size_to_write(run));
    if (!copy_data(run, course) || !finish_output(run)) return 1;
    // Standard output has nothing to be finished, like a local file.
    if (offound == 0) run.destination.local = true;
    if (!finish_transfer(run.source, run.destination, run.size, kDdRecords)) return 1;
    if (course.file) course.file->end();
    return 0;
}
