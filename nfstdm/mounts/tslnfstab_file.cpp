// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/tslnfstab_file.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace nfstdm {
namespace {

constexpr std::size_t kSizeMaximum = std::size_t{64} << 20;  // bytes

Status failure(int number, const std::string &path) {
    return {static_cast<uint32_t>(number), path + ": " + std::strerror(number)};
}

// Without the file no path is on a mount, which is worth a word when one was meant to be.
Tslnfstab nothing(const std::string &path) {
    Tslnfstab none;
    none.remarks.push_back("no such file: " + path);
    return none;
}

}  // namespace

Result<Tslnfstab> load_tslnfstab(const std::string &home) {
    if (home.empty()) return Tslnfstab{};
    const std::string path = home + "/dbs/tslnfstab";
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "re"), &std::fclose);
    if (!file && (errno == ENOENT || errno == ENOTDIR)) return nothing(path);
    if (!file) return failure(errno, path);
    std::string text;
    std::array<char, 16384> piece;
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file.get())) {
        text.append(piece.data(), count);
        if (text.size() > kSizeMaximum) return failure(EFBIG, path);
    }
    if (std::ferror(file.get()) != 0) return failure(errno, path);
    return read_tslnfstab(text);
}

}  // namespace nfstdm
