// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/acquaintance.h"

#include <algorithm>
#include <cerrno>

namespace nfstdm::rpc {

bool Acquaintance::must_ask(const Address &peer) {
    if (several_) return true;
    if (home_.empty()) home_ = to_text(peer);
    return to_text(peer) != home_;
}

Status Acquaintance::meet(const Address &peer, const std::string &name, bool in_use) {
    const std::string place = to_text(peer);
    if (name_.empty() && in_use) return {EAGAIN, "whether it is the same server is not known yet"};
    // A server may have another name after a restart.
    if (name_.empty() || place == home_) {
        home_ = place;
        know(name);
    }
    if (name == name_) return {};
    strangers_.push_back(place);
    return {EREMCHG, "another server answers here, the path is left alone"};
}

bool Acquaintance::know(const std::string &name) {
    if (name == name_) return false;
    name_ = name;
    strangers_.clear();
    return true;
}

bool Acquaintance::is_stranger(const Address &peer) const {
    return std::ranges::find(strangers_, to_text(peer)) != strangers_.end();
}

void Acquaintance::forget() {
    home_.clear();
    name_.clear();
    strangers_.clear();
}

}  // namespace nfstdm::rpc
