// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/sparse_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

// What file systems leave out at the least.
constexpr std::size_t kPage = 4096;

// At least one byte; each is as its neighbour, which the C library compares many at a time.
bool is_zero(std::span<const std::byte> bytes) {
    return bytes.front() == std::byte{0} && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

// The bytes up to where zeros begin, or cease to be.
std::size_t length_of_run(std::span<const std::byte> bytes, bool zeros) {
    std::size_t length = 0;
    while (length < bytes.size()) {
        const auto page = bytes.subspan(length, std::min(kPage, bytes.size() - length));
        if (is_zero(page) != zeros) break;
        length += page.size();
    }
    return length;
}

}  // namespace

bool may_have_holes(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && S_ISREG(status.st_mode);
}

bool takes_less_than_its_size(FILE *stream) {
    constexpr off_t kUnit = 512;  // of st_blocks
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && status.st_blocks < status.st_size / kUnit;
}

bool leave_hole(FILE *stream, uint64_t until) {
    return fseeko(stream, static_cast<off_t>(until), SEEK_SET) == 0;
}

bool write_without_zeros(FILE *stream, std::span<const std::byte> bytes) {
    bool zeros = false;
    for (; !bytes.empty(); zeros = !zeros) {
        const std::size_t length = length_of_run(bytes, zeros);
        if (zeros && fseeko(stream, static_cast<off_t>(length), SEEK_CUR) != 0) return false;
        if (!zeros && std::fwrite(bytes.data(), 1, length, stream) != length) return false;
        bytes = bytes.subspan(length);
    }
    return true;
}

bool end_sparse_file(FILE *stream, uint64_t size) {
    if (std::fflush(stream) != 0) return false;
    struct stat status;
    if (fstat(fileno(stream), &status) != 0) return false;
    return static_cast<uint64_t>(status.st_size) == size || ftruncate(fileno(stream), static_cast<off_t>(size)) == 0;
}
