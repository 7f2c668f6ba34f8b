// SPDX-License-Identifier: Apache-2.0
// A compiled catalogue in the GNU C library's layout, in the byte order of the host: magic, width and depth of a hash
// table, the table of (set, message, offset) twice, once for each byte order, then the texts. It is small, so the table
// is searched from its beginning.
#include "platform/compiled_catalogue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

#include "platform/descriptor.h"

namespace {

constexpr uint32_t kMagic = 0x960408de;
constexpr uint32_t kStoredSet = 2;              // set 1: the numbers of sets are stored one higher
constexpr std::size_t kFileMaximum = 1u << 20;  // bytes; a catalogue takes a few thousand

using Header = std::array<uint32_t, 3>;

// The whole of a regular file of a sensible size; empty otherwise. Opened without waiting: the name may be a pipe's.
std::vector<char> read_file(const std::string &path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
    if (status.st_size <= 0 || static_cast<std::size_t>(status.st_size) > kFileMaximum) return {};
    std::vector<char> bytes(static_cast<std::size_t>(status.st_size));
    const ssize_t got = ::read(file.get(), bytes.data(), bytes.size());
    if (got != static_cast<ssize_t>(bytes.size())) bytes.clear();
    return bytes;
}

}  // namespace

std::optional<CompiledCatalogue> CompiledCatalogue::read(const std::string &path) {
    CompiledCatalogue catalogue(read_file(path));
    if (!catalogue.is_sound()) return std::nullopt;
    return catalogue;
}

// Every offset stays inside the bytes, and a text ends there at the latest.
bool CompiledCatalogue::is_sound() {
    Header header;
    if (bytes_.size() < sizeof header || bytes_.back() != '\0') return false;
    std::memcpy(header.data(), bytes_.data(), sizeof header);
    slots_ = uint64_t{header[1]} * header[2];
    if (header[0] != kMagic || slots_ == 0 || slots_ > kFileMaximum) return false;
    texts_ = sizeof header + 2 * slots_ * sizeof(Slot);
    if (texts_ >= bytes_.size()) return false;
    for (uint64_t i = 0; i < slots_; ++i)
        if (slot(i).offset >= bytes_.size() - texts_) return false;
    return true;
}

std::string CompiledCatalogue::text(int message) const {
    for (uint64_t i = 0; i < slots_; ++i) {
        const Slot one = slot(i);
        if (one.set == kStoredSet && one.message == static_cast<uint32_t>(message))
            return bytes_.data() + texts_ + one.offset;
    }
    return {};
}

CompiledCatalogue::Slot CompiledCatalogue::slot(uint64_t number) const {
    Slot one;
    std::memcpy(&one, bytes_.data() + sizeof(Header) + number * sizeof(Slot), sizeof one);
    return one;
}
