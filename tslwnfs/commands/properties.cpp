// SPDX-License-Identifier: Apache-2.0
// What the storage interface knows of a file as an open file. No command word leads here; the executor's code 4 does.
#include <sys/stat.h>

#include <array>

#include "include/tdm.h"
#include "tslwnfs/commands/attribute_block.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/storage/identify.h"
#include "tslwnfs/storage/local_file.h"
#include "tslwnfs/storage/resolve.h"

namespace {

constexpr const char *kStatfile = "statfile";

struct OperationLine {
    const char *label;
    uint16_t bit;
};

constexpr std::array<OperationLine, 9> kOperations = {{
    {"CREATE:                        ", TDM_PERMITTED_CREATE},
    {"READ  :                        ", TDM_PERMITTED_READ},
    {"WRITE :                        ", TDM_PERMITTED_WRITE},
    {"RESIZE:                        ", TDM_PERMITTED_RESIZE},
    {"MIRROR SIDE I/O:               ", TDM_PERMITTED_MIRROR_SIDE_IO},
    {"WRITE ONCE FILE:               ", TDM_PERMITTED_WRITE_ONCE},
    {"RESILVER:                      ", TDM_PERMITTED_RESILVER},
    {"SCATTER GATHER SUPPORTED:      ", TDM_PERMITTED_SCATTER_GATHER},
    {"RAW VOLUME:                    ", TDM_PERMITTED_RAW_VOLUME},
}};

void print_properties(const TdmFileInfo &info) {
    print("\n \t file identifier                %llu%s", static_cast<unsigned long long>(info.file),
          output_is_log() ? "" : "  ");
    print("\n \t file size                      %llu  bytes", static_cast<unsigned long long>(info.size));
    print("\n \t prefered i/o size              %u    bytes", info.preferred_io_size);
    print("\n \t prefered i/o alignment         %u    bytes", info.preferred_io_alignment);
    print("\n \t permitted tdm operations:");
    for (const OperationLine &line : kOperations) {
        print("\n \t %s%s", line.label, yes_or_no((info.permitted & line.bit) != 0));
    }
    // A file that can be resilvered has sides, whether or not they can be addressed one by one.
    if ((info.permitted & TDM_PERMITTED_RESILVER) != 0) {
        print("\n\n \tno.of mirror sides\t\t\t%hu", info.mirror_sides);
    }
}

uint32_t print_local(const PathBuffer &path) {
    if (!is_readable(path.c_str())) {
        trace_message(kStatfile, Message::file_unreadable, path.c_str());
        return 1;
    }
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        trace_message(kStatfile, Message::status_unreadable, path.c_str());
        return 1;
    }
    print_local_block(
        status,
        {.line_end = " ", .directory = "Directory", .serial_number = true, .wide_permission_labels = !output_is_log()});
    return 0;
}

}  // namespace

uint32_t statfile(const Operand &path) {
    PathBuffer resolved;
    if (!resolve_operand(kStatfile, path, resolved)) return 1;
    AttrResult attributes;
    if (getattrdir(resolved, attributes, kUnprinted) == kTypeDirectory) return 1;
    TdmFileInfo info = {};
    switch (identify_existing(kStatfile, resolved, info)) {
        case FileKind::local:
            return print_local(resolved);
        case FileKind::remote:
            print_properties(info);  // the file stays open until the session ends
            return 0;
        case FileKind::failed:
            break;
    }
    return 1;
}
