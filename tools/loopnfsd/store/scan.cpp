// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/scan.h"

#include <cerrno>
#include <memory>
#include <string_view>

namespace loopnfsd {

namespace {

struct CloseStream {
    void operator()(DIR *stream) const { closedir(stream); }
};

}  // namespace

NfsStatus scan_directory(UniqueFd directory, const std::function<void(const dirent &)> &entry) {
    const std::unique_ptr<DIR, CloseStream> stream(fdopendir(directory.get()));
    if (stream == nullptr) return status_of_errno(errno);
    directory.release();
    errno = 0;
    while (const dirent *found = readdir(stream.get())) {
        const std::string_view name = found->d_name;
        if (name != "." && name != "..") entry(*found);
        errno = 0;
    }
    return errno == 0 ? NfsStatus::ok : status_of_errno(errno);
}

}  // namespace loopnfsd
