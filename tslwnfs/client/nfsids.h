// SPDX-License-Identifier: Apache-2.0
// The nfsids command.
#pragma once

// Prints the identity that the client presents to servers to the command's output.
void nfscred();
