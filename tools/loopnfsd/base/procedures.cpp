// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/base/procedures.h"

#include <algorithm>
#include <array>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/portmap/constants.h"
#include "tools/loopnfsd/base/text.h"

namespace loopnfsd {

namespace {

constexpr uint32_t kNfs = nfstdm::nfs3::kProgram;
constexpr uint32_t kMount = nfstdm::mount3::kProgram;
constexpr uint32_t kPortmap = nfstdm::portmap::kProgram;

constexpr std::array kProcedures{
    ProcedureRow{kNfs, kAnyVersion, 0, "NULL", kNoStatus},
    ProcedureRow{kNfs, 3, 1, "GETATTR", 0},
    ProcedureRow{kNfs, 3, 2, "SETATTR", 2},
    ProcedureRow{kNfs, 3, 3, "LOOKUP", 1},
    ProcedureRow{kNfs, 3, 4, "ACCESS", 1},
    ProcedureRow{kNfs, 3, 5, "READLINK", 1},
    ProcedureRow{kNfs, 3, 6, "READ", 1},
    ProcedureRow{kNfs, 3, 7, "WRITE", 2},
    ProcedureRow{kNfs, 3, 8, "CREATE", 2},
    ProcedureRow{kNfs, 3, 9, "MKDIR", 2},
    ProcedureRow{kNfs, 3, 10, "SYMLINK", 2},
    ProcedureRow{kNfs, 3, 11, "MKNOD", 2},
    ProcedureRow{kNfs, 3, 12, "REMOVE", 2},
    ProcedureRow{kNfs, 3, 13, "RMDIR", 2},
    ProcedureRow{kNfs, 3, 14, "RENAME", 4},
    ProcedureRow{kNfs, 3, 15, "LINK", 3},
    ProcedureRow{kNfs, 3, 16, "READDIR", 1},
    ProcedureRow{kNfs, 3, 17, "READDIRPLUS", 1},
    ProcedureRow{kNfs, 3, 18, "FSSTAT", 1},
    ProcedureRow{kNfs, 3, 19, "FSINFO", 1},
    ProcedureRow{kNfs, 3, 20, "PATHCONF", 1},
    ProcedureRow{kNfs, 3, 21, "COMMIT", 2},
    ProcedureRow{kNfs, 4, 1, "COMPOUND", 2},  // an empty tag, no results
    ProcedureRow{kMount, 3, 0, "MOUNT_NULL", kNoStatus},
    ProcedureRow{kMount, 3, 1, "MNT", 0},
    ProcedureRow{kMount, 3, 2, "MOUNT_DUMP", kNoStatus},
    ProcedureRow{kMount, 3, 3, "UMNT", kNoStatus},
    ProcedureRow{kMount, 3, 4, "UMNTALL", kNoStatus},
    ProcedureRow{kMount, 3, 5, "EXPORT", kNoStatus},
    ProcedureRow{kPortmap, 2, 0, "PMAP_NULL", kNoStatus},
    ProcedureRow{kPortmap, 2, 3, "GETPORT", kNoStatus},
    ProcedureRow{kPortmap, 2, 4, "PMAP_DUMP", kNoStatus},
};

}  // namespace

std::span<const ProcedureRow> all_procedures() {
    return kProcedures;
}

const ProcedureRow *find_procedure(uint32_t program, uint32_t version, uint32_t number) {
    const auto row = std::ranges::find_if(kProcedures, [&](const ProcedureRow &each) {
        return each.program == program && each.number == number &&
               (each.version == version || each.version == kAnyVersion);
    });
    return row == kProcedures.end() ? nullptr : &*row;
}

const ProcedureRow *find_procedure(std::string_view name) {
    const auto row =
        std::ranges::find_if(kProcedures, [&](const ProcedureRow &each) { return same_word(each.name, name); });
    return row == kProcedures.end() ? nullptr : &*row;
}

}  // namespace loopnfsd
