// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/nfsids.h"

#include "tslwnfs/client/presented_identity.h"
#include "tslwnfs/output/output.h"

void nfscred() {
    PresentedIdentity identity;
    if (!presented_identity(identity)) {
        print("\n failed .....");
        return;
    }
    const char *name = identity.computer_name.c_str();
    const auto uid = static_cast<int>(identity.uid), gid = static_cast<int>(identity.gid);
    // The columns of the log and of standard output differ.
    if (output_is_log()) {
        print("\nCOMPUTER NAME:  %s\nUID:              %d\nGID:              %d\n", name, uid, gid);
    } else {
        print("\nCOMPUTER NAME:             %s\nUID:                        %d\nGID:                        %d\n", name,
              uid, gid);
    }
}
