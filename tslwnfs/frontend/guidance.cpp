// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/guidance.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace {

struct Synopsis {
    std::string_view command;  // the first word of its row
    std::string_view text;
};

constexpr Synopsis kSynopses[] = {
    {"copy",
     "copy|cp [-i] [-r] SOURCE DESTINATION\n"
     "-i  ask before an existing file is overwritten\n"
     "-r  copy what a directory holds into the directory DESTINATION\n"
     "A * in the last name of SOURCE is a wildcard; quote it."},
    {"move",
     "move|mv [-i] SOURCE DESTINATION\n"
     "-i  ask before an existing file is overwritten\n"
     "A * in the last name of SOURCE is a wildcard; quote it."},
    {"del",
     "del|delete|rm [-i] [-r] FILE\n"
     "-i  ask about each\n"
     "-r  delete a directory with all below it\n"
     "A * in the last name of FILE is a wildcard; quote it."},
    {"cat", "cat FILE"},
    {"dd",
     "dd [-if FILE] [-of FILE] [-bs BYTES] [-ibs BYTES] [-obs BYTES] [-count BYTES] [-skip N] [-seek N] [-p N]\n"
     "-if, -of      instead of standard input and output\n"
     "-bs           block size; in front of -skip and -seek, which count in blocks\n"
     "-ibs, -obs    block size of the input, of the output\n"
     "-count        copy so many bytes\n"
     "-skip, -seek  begin so many blocks into the input, the output\n"
     "-p            requests at a time\n"
     "BYTES may end in w, b, k, m, g, kb, mb, gb."},
    {"find",
     "find PATH [-follow] [-maxdepth N] [-name PATTERN] [-path PATTERN] [-size [+|-]N[k]] [-type d|f] [-print] "
     "[-exec WORDS]\n"
     "-follow    follow symbolic links\n"
     "-maxdepth  walk so many levels\n"
     "-name      the name matches; -path: the whole path\n"
     "-size      exactly N bytes, +N at least, -N at most; k counts 1024 bytes\n"
     "-type      d a directory, f a file\n"
     "-exec      run everything behind it, with the path in place of {}"},
    {"ls",
     "ls|dir [-1BClaAtcudeRSrs] PATH\n"
     "-1, -B      one name a line; -C: three columns; -l: long\n"
     "-a          names that begin with a dot, too; -A: not those\n"
     "-t, -c, -u  the time of modification, status change, access\n"
     "-d          directories only\n"
     "-e, -s      with the time, with the size\n"
     "-r          in reverse order\n"
     "-R, -S      the whole tree"},
    {"mkdir",
     "mkdir [-p] DIRECTORY\n"
     "-p  with its missing parents"},
    {"rmdir", "rmdir DIRECTORY"},
    {"getattr", "getattr DIRECTORY"},
    {"setattr", "setattr DIRECTORY"},
    {"stat",
     "stat [-f] [-l] [-c FORMAT] PATH\n"
     "-f  the figures of its file system, free space included\n"
     "-l  follow a symbolic link\n"
     "-c  print FORMAT: %n name, %F type, %A permissions, %u user, %g group, %s size, %x %y %z times"},
    {"fsstat", "fsstat PATH"},
    {"fsinfo", "fsinfo DIRECTORY"},
    {"nfsids", "nfsids"},
    {"createtslnfstab",
     "createtslnfstab -s SERVER -em EXPORT,MOUNTPOINT[,SECURITY][;...] [-lp LOCAL,PATH[;...]] [-u UID] "
     "[-g GID] [-v VERSION] [-t SECONDS] [-r PORT] [-c COMMUNITY] [-sd SECURITY] [-m MANAGEMENT]\n"
     "-s   the server's name or address; a block that it has is replaced\n"
     "-em  what it exports and where; all of it in one list, quoted\n"
     "-lp  addresses here and there; LOCAL may be empty, PATH may be HOST:PORT"},
    {"mount",
     "mount EXPORT MOUNTPOINT [-f] [-u UID] [-g GID] [-s SERVER] [-l LOCAL] [-p PATH]\n"
     "-f  empty tslnfstab first"},
    {"umount", "umount MOUNTPOINT"},
    {"getserverlist", "getserverlist"},
    {"display_server", "display_server -s SERVER"},
    {"delete_server", "delete_server -s SERVER"},
    {"enablerdma", "enablerdma -s SERVER [-p PORT]"},
    {"disablerdma", "disablerdma -s SERVER"},
    {"mount_script", "mount_script -e EXPORT -m MOUNTPOINT"},
    {"umount_script", "umount_script -m MOUNTPOINT"},
    {"showmount", "showmount [-e] SERVER"},
    {"wnfsenable", "wnfsenable"},
    {"wnfsdisable", "wnfsdisable [-deletetslnfstab] [-deletetdmdir]"},
    {"save", "save"},
    {"restore", "restore"},
    {"iswnfsenabled", "iswnfsenabled HOME"},
    {"isPathOnWNFS", "isPathOnWNFS -oh HOME -path PATH"},
    {"networkdiscovery", "networkdiscovery [NAME]"},
    {"getsubnetmask", "getsubnetmask -ip ADDRESS"},
    {"?",
     "help COMMAND tells what a command takes\n"
     "-trace FILE  write records there; -level is needed, too\n"
     "-level L-5 L-4 L-3 L-2  0 to 4 each: of the storage interface, the protocol, the system and the utility;\n"
     "    1 shows all, 3 errors, 0 nothing\n"
     "-log FILE  write there what goes to standard output\n"
     "-y  at the very end: yes to the questions of wnfsenable, save and restore"},
};

std::string asked_for;

// How many characters have to be put in, left out, replaced, or exchanged with their neighbour.
std::size_t distance(std::string_view one, std::string_view other) {
    std::vector<std::size_t> before(other.size() + 1), last(other.size() + 1), row(other.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const bool same = one[i - 1] == other[j - 1];
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
            const bool swapped = i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1];
            if (swapped) row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before = last;
        last = row;
    }
    return last[other.size()];
}

// A word of another length than what was typed by half is no slip of the fingers, and an option is no mistyped command.
std::optional<std::string_view> nearest_command(std::string word) {
    std::optional<std::string_view> nearest;
    if (word.starts_with('-')) return nearest;
    std::ranges::transform(word, word.begin(), [](unsigned char c) { return std::tolower(c); });
    std::size_t least = word.size() / 2 + 1;
    for (const auto &command : command_table()) {
        for (const char *known : command.words) {
            if (known == nullptr || std::string_view(known).size() < 2) continue;
            const std::size_t steps = distance(word, known);
            if (steps >= least) continue;
            least = steps;
            nearest = known;
        }
    }
    return nearest;
}

std::string unknown_command(std::string_view word) {
    const auto nearest = nearest_command(std::string(word));
    return std::string(word) + " is no command" + (nearest ? "; did you mean " + std::string(*nearest) + "?" : "");
}

}  // namespace

std::string_view synopsis_of(std::string_view command) {
    const Command *row = command.empty() ? nullptr : find_command(command);
    if (row == nullptr) return {};
    const auto *const known = std::find_if(std::begin(kSynopses), std::end(kSynopses),
                                           [&](const Synopsis &synopsis) { return synopsis.command == row->words[0]; });
    return known == std::end(kSynopses) ? std::string_view(row->words[0]) : known->text;
}

void ask_for_synopsis(std::string_view command) {
    asked_for = command;
}

void tell_synopsis() {
    std::string_view text = synopsis_of(asked_for);
    if (text.empty() && !asked_for.empty()) terminal::say(unknown_command(asked_for));
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        terminal::say(line);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    asked_for.clear();
}

void note_unknown_command(std::string_view word) {
    terminal::note_failure(unknown_command(word));
}
