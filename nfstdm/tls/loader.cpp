// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tls/loader.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string_view>

namespace nfstdm::tls {

namespace {

constexpr std::string_view kName = "nfstdm-tls.so";
constexpr std::string_view kCure = "; TLS needs OpenSSL 3: package libssl3 of Debian, openssl-libs of RPM systems";

Status failure(const std::string &path, const std::string &why) {
    return {ELIBACC, "TLS is not available: " + path + ": " + why + std::string(kCure)};
}

std::string dl_words() {
    const char *words = dlerror();
    return words == nullptr ? "no reason given" : words;
}

Result<const nfstdm_tls_functions *> load_once(const std::string &path) {
    if (access(path.c_str(), F_OK) != 0) return failure(path, "the module is not installed");
    void *module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (module == nullptr) return failure(path, dl_words());
    using Entry = decltype(&nfstdm_tls_module);
    const auto entry = reinterpret_cast<Entry>(dlsym(module, NFSTDM_TLS_ENTRY));
    if (entry == nullptr) return failure(path, dl_words());
    const nfstdm_tls_functions *functions = entry();
    if (functions->version != NFSTDM_TLS_VERSION) return failure(path, "the module is of another version");
    return functions;
}

}  // namespace

std::string module_path() {
    Dl_info info{};
    std::string folder = ".";
    if (dladdr(reinterpret_cast<const void *>(&module_path), &info) != 0 && info.dli_fname != nullptr) {
        const std::string self = info.dli_fname;
        const auto slash = self.rfind('/');
        if (slash != std::string::npos) folder = self.substr(0, slash);
    }
    const std::string beside = folder + "/" + std::string(kName);
    const std::string in_lib = folder + "/../lib/" + std::string(kName);
    return access(beside.c_str(), F_OK) != 0 && access(in_lib.c_str(), F_OK) == 0 ? in_lib : beside;
}

Result<const nfstdm_tls_functions *> load(const std::string &path) {
    static std::map<std::string, const nfstdm_tls_functions *> loaded;
    if (const auto found = loaded.find(path); found != loaded.end()) return found->second;
    auto functions = load_once(path);
    if (functions.ok()) loaded.emplace(path, functions.value());
    return functions;
}

}  // namespace nfstdm::tls
