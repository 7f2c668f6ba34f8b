// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/properties.h"

#include <sys/stat.h>

#include <array>

#include "include/tdm.h"
#include "tslwnfs/commands/attribute_block.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/options.h"
#include "tslwnfs/frontend/output.h"
#include "tslwnfs/storage/local_file.h"
#include "tslwnfs/storage/resolve.h"

namespace {

constexpr const char *kFunction = "statfile";

struct PermittedLine {
    const char *label;
    uint16_t bit;
};

constexpr std::array<PermittedLine, 9> kPermittedLines = {{
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

void print_remote_properties(const TdmFileInfo &info) {
    print("\n \t file identifier                %llu%s", static_cast<unsigned long long>(info.file),
          output_is_log() ? "" : "  ");
    print("\n \t file size                      %llu  bytes", static_cast<unsigned long long>(info.size));
    print("\n \t prefered i/o size              %u    bytes", info.preferred_io_size);
    print("\n \t prefered i/o alignment         %u    bytes", info.preferred_io_alignment);
    print("\n \t permitted tdm operations:");
    for (const PermittedLine &line : kPermittedLines) {
        print("\n \t %s%s", line.label, yes_or_no((info.permitted & line.bit) != 0));
    }
    // The sides are counted for a file that is being resilvered, whether or not one side can be read on its own.
    if ((info.permitted & TDM_PERMITTED_RESILVER) != 0) {
        print("\n\n \tno.of mirror sides\t\t\t%hu", info.mirror_sides);
    }
}

uint32_t report_local_file(const PathBuffer &path) {
    uint64_t size = 0;
    if (open_local_source(path.c_str(), size) == nullptr) {
        trace_message(kFunction, Message::file_unreadable, path.c_str());
        return 1;
    }
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        trace_message(kFunction, Message::status_unreadable, path.c_str());
        return 1;
    }
    print_local_block(
        status,
        {.line_end = " ", .directory = "Directory", .serial_number = true, .wide_permission_labels = !output_is_log()});
    return 0;
}

}  // namespace

uint32_t statfile(const char *path) {
    PathBuffer resolved;
    if (!resolve_operand(kFunction, path, resolved)) return 1;
    AttrResult attributes;
    if (getattrdir(resolved.c_str(), attributes, 0) == kTypeDirectory) return 1;

    uint32_t code = 0;
    PathBuffer error_text;
    TdmFileInfo info = {};
    const uint32_t status =
        tdm_identify(ctx, resolved.c_str(), 0, 2, &code, error_text.writable(), PathBuffer::kSize, &info, 0);
    if (status != 0 || code == TDM_IDENTIFIED_FAILED || code == TDM_IDENTIFIED_LOCAL) {
        trace_message(kFunction, Message::identify_returned, resolved.c_str(), code);
    }
    if (status != 0 || code == TDM_IDENTIFIED_FAILED) return 1;
    if (code == TDM_IDENTIFIED_LOCAL) return report_local_file(resolved);
    print_remote_properties(info);
    return 0;
}
