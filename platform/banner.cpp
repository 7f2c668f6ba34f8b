// SPDX-License-Identifier: Apache-2.0
#include "platform/banner.h"

namespace {
constexpr std::size_t kBannerMaximum = 255;
constexpr std::string_view kTail = " helper utility, version " TSLWNFS_VERSION " (production)\n";
}  // namespace

std::string platform_banner(std::string_view program) {
    return std::string(program.substr(0, kBannerMaximum - kTail.size())).append(kTail);
}
