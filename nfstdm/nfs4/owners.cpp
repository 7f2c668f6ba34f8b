// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/owners.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nfstdm::nfs4 {

namespace {

// More names than a server has users worth remembering: whoever sends that many is not helped by memory.
constexpr std::size_t kRemembered = 4096;
constexpr std::size_t kEntryMaximum = std::size_t{1} << 20;  // bytes of one entry of the system's list

std::optional<uint32_t> digits(std::string_view text) {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

// Asks with as much memory as the entry takes (a group may have thousands of members).
template <class Ask>
uint32_t with_room(Ask &&ask) {
    for (std::size_t size = 4096; size <= kEntryMaximum; size *= 4) {
        std::vector<char> room(size);
        uint32_t number = kNobody;
        if (ask(room, number) != ERANGE) return number;
    }
    return kNobody;
}

uint32_t ask_user(const std::string &name) {
    return with_room([&name](std::vector<char> &room, uint32_t &number) {
        passwd entry{};
        passwd *found = nullptr;
        const int error = getpwnam_r(name.c_str(), &entry, room.data(), room.size(), &found);
        if (found != nullptr) number = found->pw_uid;
        return error;
    });
}

uint32_t ask_group(const std::string &name) {
    return with_room([&name](std::vector<char> &room, uint32_t &number) {
        group entry{};
        group *found = nullptr;
        const int error = getgrnam_r(name.c_str(), &entry, room.data(), room.size(), &found);
        if (found != nullptr) number = found->gr_gid;
        return error;
    });
}

class Numbers {
  public:
    explicit Numbers(uint32_t (*ask)(const std::string &)) : ask_(ask) {}

    uint32_t of(std::string_view owner) {
        if (const auto number = digits(owner)) return *number;
        const std::string name(owner.substr(0, owner.find('@')));
        if (name.empty() || name.size() == owner.size() || name.find('\0') != std::string::npos) return kNobody;
        if (const auto known = known_.find(name); known != known_.end()) return known->second;
        if (known_.size() >= kRemembered) known_.clear();
        return known_[name] = ask_(name);
    }

  private:
    uint32_t (*ask_)(const std::string &);
    std::map<std::string, uint32_t> known_;
};

}  // namespace

uint32_t user_number(std::string_view owner) {
    static Numbers users(ask_user);
    return users.of(owner);
}

uint32_t group_number(std::string_view owner) {
    static Numbers groups(ask_group);
    return groups.of(owner);
}

}  // namespace nfstdm::nfs4
