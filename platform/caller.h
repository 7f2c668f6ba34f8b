// SPDX-License-Identifier: Apache-2.0
// Who may use the utility.
#pragma once

// Returns 1 when the caller belongs to the administrators' group. On this platform everybody does: files and servers
// guard themselves by the caller's own identity.
int UserInTSLDBA();
