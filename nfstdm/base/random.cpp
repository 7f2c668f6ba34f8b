// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/random.h"

#include <sys/random.h>

#include <cerrno>
#include <system_error>

namespace nfstdm {

uint64_t random_number() {
    uint64_t number = 0;
    ssize_t taken = 0;
    do {
        taken = getrandom(&number, sizeof number, 0);
    } while (taken < 0 && errno == EINTR);
    if (taken != sizeof number) throw std::system_error(errno, std::generic_category(), "getrandom");
    return number;
}

}  // namespace nfstdm
