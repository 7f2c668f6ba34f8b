// SPDX-License-Identifier: Apache-2.0
// The export list of a server, on its way from the MOUNT reply to what showmount prints.
//
// Whatever comes, printing it ends. Of a list that is accepted every directory and group is printed, however the list
// is cut into pieces on the way.
#include <cstdio>
#include <memory>
#include <string>

#include "nfstdm/nfs3/mount.h"
#include "nfstdm/xdr/reader.h"
#include "tests/fuzz/fuzz.h"
#include "tslwnfs/client/export_printer.h"
#include "tslwnfs/client/show_mount.h"
#include "tslwnfs/options/options.h"

namespace {

using fuzz::Bytes;
using fuzz::require;

std::string printed(std::span<const uint8_t> reply) {
    char *text = nullptr;
    std::size_t size = 0;
    octx.log_stream = open_memstream(&text, &size);
    octx.log_on = 1;
    require(octx.log_stream != nullptr, "there is memory to print to");
    require(tslwnfs_expout(reply) == 0, "a list is always printed");
    require(std::fclose(octx.log_stream) == 0, "what is printed arrives");
    octx.log_on = 0;
    octx.log_stream = nullptr;
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    return {text, size};
}

// A text as it is shown: to its first zero byte, and no longer than a name.
std::string shown(std::string_view text) {
    constexpr std::size_t kNameMaximum = 255;
    return std::string(text.substr(0, std::min(text.find('\0'), kNameMaximum)));
}

// What an accepted list should look like.
std::string expected(Bytes list) {
    constexpr std::size_t kColumn = 34;
    nfstdm::xdr::Reader reader(list);
    std::string table;
    bool another = false;
    std::string_view text;
    while (reader.get_bool(another) && another && reader.get_string(text, list.size())) {
        std::string directory = shown(text);
        directory.resize(std::max(directory.size(), kColumn), ' ');
        table += directory + " ";
        std::string groups;
        while (reader.get_bool(another) && another && reader.get_string(text, list.size())) {
            if (groups.empty()) groups = shown(text) + " ";
            groups += "," + shown(text) + " ";
        }
        table += (groups.empty() ? "(everyone)" : groups) + "\n";
    }
    return table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const Bytes list = fuzz::Input(data, size).rest();
    static_cast<void>(printed({data, size}));
    if (!nfstdm::mount3::is_export_list(list)) return 0;
    require(printed(in_pieces(list)) == expected(list), "an accepted list is printed as it is");
    return 0;
}
