// SPDX-License-Identifier: Apache-2.0
// enablerdma and disablerdma: a server's transport is switched by a port line in its block.
#include <string>
#include <string_view>
#include <vector>

#include "tslwnfs/config/block_values.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/rdma_edit.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/config/warning.h"
#include "tslwnfs/output/output.h"

namespace {

constexpr char kDefaultPort[] = "20049";  // of NFS over RDMA (RFC 8267)

// Copies a file to edit.file line by line. on_line sees the lines of the blocks, the end markers included, until the
// edit is done; when it returns false the line is left out.
template <class OnLine>
void copy_blocks(std::string_view file, RdmaEdit &edit, OnLine on_line) {
    bool inside = false;
    for (const auto line : split_lines(file)) {
        const bool is_looked_at = inside && !edit.done;
        if (!is_looked_at || on_line(line)) edit.file += line;
        inside = inside ? !is_block_end(line) : is_block_begin(line);
    }
}

// Rewrites the configuration as an edit makes it of the contents.
template <class Edit>
uint32_t rewrite_with(const char *function, Edit make) {
    ConfigurationLock lock;
    TslnfstabRewrite rewrite(function, lock);
    if (!rewrite.begin(TslnfstabRewrite::UnreadableFile::is_printed)) return 1;
    const RdmaEdit edit = make(rewrite.contents());
    if (edit.matched && edit.done) {
        return rewrite.replace_with(edit.file) == TslnfstabRewrite::Outcome::not_written ? 1 : 0;
    }
    print("%s\n", edit.matched ? "Requested server is present in tslnfstab but failed to fix it"
                               : "Requested server is not present in tslnfstab");
    rewrite.delete_backup();
    return 1;
}

}  // namespace

RdmaEdit with_rdma_port(std::string_view file, std::string_view server, std::string_view port) {
    RdmaEdit edit;
    copy_blocks(file, edit, [&](std::string_view line) {
        const auto setting = parse_setting(line);
        if (is_block_end(line)) {
            if (edit.matched) edit.file.append("rdmaport: ").append(port).append("\n");
            edit.done = edit.matched;
        } else if (setting && setting->is_rdmaport()) {
            edit.done = edit.matched;
        } else if (setting && setting->is_server(server)) {
            edit.matched = true;
        }
        return true;
    });
    return edit;
}

RdmaEdit without_rdma_port(std::string_view file, std::string_view server) {
    RdmaEdit edit;
    copy_blocks(file, edit, [&](std::string_view line) {
        const auto setting = parse_setting(line);
        if (setting && setting->is_server(server)) edit.matched = true;
        edit.done = edit.matched && setting && setting->is_rdmaport();
        return !edit.done;
    });
    return edit;
}

uint32_t enablerdma(const char *server, const char *port) {
    const char *value = port != nullptr ? port : kDefaultPort;
    const std::vector<BlockSetting> setting = {{"rdmaport", value}};
    if (!are_writable("enablerdma", setting)) return 1;
    for (const auto &misreading : misreadings_of(setting))
        warn("enablerdma", misreading);
    return rewrite_with("enablerdma", [&](std::string_view file) { return with_rdma_port(file, server, value); });
}

uint32_t disablerdma(const char *server) {
    return rewrite_with("disablerdma", [&](std::string_view file) { return without_rdma_port(file, server); });
}
