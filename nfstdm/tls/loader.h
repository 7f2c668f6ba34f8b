// SPDX-License-Identifier: Apache-2.0
// Finds and loads the module that does TLS.
#pragma once

#include <string>

#include "nfstdm/base/status.h"
#include "nfstdm/tls/tls_module.h"

namespace nfstdm::tls {

// Where the module lies: in the folder of the library, or program, that this code is part of; "../lib" of that folder
// is looked at too.
std::string module_path();

// Loads it once; it stays. Fails with ELIBACC, saying what is missing and what to install.
Result<const nfstdm_tls_functions *> load(const std::string &path);

}  // namespace nfstdm::tls
