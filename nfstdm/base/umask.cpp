// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/umask.h"

#include <sys/stat.h>

#include <fstream>
#include <ios>
#include <string>

namespace nfstdm {

uint32_t process_umask() {
    std::ifstream status("/proc/self/status");
    uint32_t mask = 0;
    for (std::string word; status >> word;)
        if (word == "Umask:" && status >> std::oct >> mask) return mask;
    mask = ::umask(0);
    ::umask(mask);
    return mask;
}

}  // namespace nfstdm
