// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/tslnfstab_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>

#include "nfstdm/base/descriptor.h"

namespace nfstdm {
namespace {

constexpr std::size_t kSizeMaximum = std::size_t{64} << 20;  // bytes

// A file that is being changed may be between two names for a moment.
constexpr std::chrono::milliseconds kChangeMaximum(200);
constexpr std::chrono::milliseconds kBetweenLooks(10);

Status left_in(const std::string &path, const std::string &backup) {
    return {ECANCELED, "the configuration was left in " + backup + "; look at it and rename it to " + path};
}

// Without the file no path is on a mount, which is worth a word when one was meant to be.
Tslnfstab nothing(const std::string &path) {
    Tslnfstab none;
    none.remarks.push_back("no such file: " + path);
    return none;
}

// Reads a file to its end. Opened without waiting: the name may be a pipe's.
Status read_file(const std::string &path, std::string &text) {
    Descriptor opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!opened) return system_failure(path, errno);
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(::fdopen(opened.get(), "r"), &std::fclose);
    if (!file) return system_failure(path, ENOMEM);
    const int descriptor = opened.release();  // the stream's own
    struct stat status;
    if (::fstat(descriptor, &status) != 0) return system_failure(path, errno);
    if (S_ISDIR(status.st_mode)) return system_failure(path, EISDIR);
    if (!S_ISREG(status.st_mode)) return {EINVAL, path + ": it is no regular file"};
    std::array<char, 16384> piece;
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), file.get())) {
        text.append(piece.data(), count);
        if (text.size() > kSizeMaximum) return system_failure(path, EFBIG);
    }
    return std::ferror(file.get()) != 0 ? system_failure(path, errno) : Status{};
}

bool is_missing(const Status &status) {
    return status.number() == ENOENT || status.number() == ENOTDIR;
}

bool is_left_in_backup(const std::string &backup) {
    struct stat status;
    return ::stat(backup.c_str(), &status) == 0 && status.st_size > 0;
}

}  // namespace

Result<Tslnfstab> load_tslnfstab(const std::string &home) {
    if (home.empty()) return Tslnfstab{};
    const std::string path = home + "/dbs/tslnfstab";
    const std::string backup = path + ".bak";
    const auto deadline = std::chrono::steady_clock::now() + kChangeMaximum;
    for (;;) {
        // Looked at before the file and behind it: a change may be completed in between.
        const bool was_left = is_left_in_backup(backup);
        std::string text;
        const Status read = read_file(path, text);
        if (read.ok()) return read_tslnfstab(text);
        if (!is_missing(read)) return read;
        if (!was_left && !is_left_in_backup(backup)) return nothing(path);
        if (std::chrono::steady_clock::now() >= deadline) return left_in(path, backup);
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

}  // namespace nfstdm
