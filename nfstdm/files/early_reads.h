// SPDX-License-Identifier: Apache-2.0
// Small files that are asked for ahead of their use, as wholes. Whoever goes from one small file to the next would wait
// a round trip for each; those that come next are on their way meanwhile.
//
// Each is asked for by itself, in NFSv4, too: of several READs in one compound a Linux server (6.12) answers those
// behind the first with zeros.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string_view>

#include "nfstdm/files/buffer_pool.h"
#include "nfstdm/files/path_walk.h"
#include "nfstdm/files/read_ahead.h"

namespace nfstdm {

class EarlyReads {
  public:
    static constexpr std::size_t kFileMaximum = std::size_t{64} << 10;  // bytes
    static constexpr std::size_t kFilesMaximum = 128;

    // Mounts and pool must outlive the object.
    EarlyReads(const MountSet &mounts, BufferPool &pool) : mounts_(mounts), pool_(pool) {}
    EarlyReads(const EarlyReads &) = delete;
    EarlyReads &operator=(const EarlyReads &) = delete;

    // Asks for a file, if enough is known of it without a question.
    void expect(std::string_view path);

    // What was asked for of the file at a place; null when that is nothing, or the file is not what it was then. Given
    // once.
    std::shared_ptr<EarlyRead> take(const Place &place);

    void clear() { files_.clear(); }

  private:
    struct File {
        MountedVolume *mount;
        FoundObject object;
        std::shared_ptr<EarlyRead> read;
    };

    const MountSet &mounts_;
    BufferPool &pool_;
    std::deque<File> files_;  // in the order in which they were expected
};

}  // namespace nfstdm
