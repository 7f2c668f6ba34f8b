// SPDX-License-Identifier: Apache-2.0
// The descriptors that the library has open, so that a forked child can drop the copies it got of them. Everything here
// is safe between fork and what follows it: no memory is taken and no lock.
#pragma once

namespace nfstdm {

// What has been opened, and what is about to be closed.
void note_opened(int descriptor);
void note_closing(int descriptor);

// For a forked child: closes every descriptor that its parent had open. Nothing is sent, and a connection stays the
// parent's. Objects that own such a descriptor must neither be used nor destroyed any more.
void drop_inherited_descriptors();

}  // namespace nfstdm
